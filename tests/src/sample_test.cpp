// Properties by name, for a host that works with names: which names and values are taken, and how;
// that every property of the catalogue is there under its name is tested with the tables. What the
// data store is told, and when: the store is the test's own, and both it and sd-bus write into one
// trace.
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <variant>

#include <gtest/gtest.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/hwi/HWIOemFruCustomData/server.hpp>
#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <com/orvane/velmar/system/BLT/server.hpp>
#include <com/orvane/velmar/system/FCController/server.hpp>
#include <com/orvane/velmar/system/NicPort/server.hpp>
#include <tallybook.hpp>

#include "src/served.hpp"
#include "src/stand_in.hpp"

namespace
{

// What the data store was told and sd-bus announced, a line each.
std::string trace;
bool store_is_full = false;

} // namespace

void Tallybook::set_key(const std::string& key, const std::string& class_name,
                        const std::string& object_path, unsigned short caller_id)
{
    trace += "set_key " + key + ' ' + class_name + ' ' + object_path + ' ' +
             std::to_string(caller_id) + '\n';
    if (store_is_full)
    {
        throw std::runtime_error("store is full");
    }
}

void Tallybook::remove(const std::string& key) noexcept
{
    const auto logged = support::captured_log::count("destructor called, DAL true", "~Gantrytest");
    trace += "remove " + key + " logged " + std::to_string(logged) + '\n';
    support::captured_log::clear();
}

int tallybook_caller_id(void)
{
    trace += "caller_id\n";
    return 0x1'0007; // the store takes 16 bits of it
}

extern "C" int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path,
                                                   const char* interface, char** names)
{
    trace += std::string("changed ") + names[0] + '\n';
    return stand_in::hidden<decltype(sd_bus_emit_properties_changed_strv)>(__func__)(
        bus, path, interface, names);
}

namespace
{

using sdbusplus::server::com::orvane::velmar::hwi::HWIOemFruCustomData;
using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using sdbusplus::server::com::orvane::velmar::system::BLT;
using sdbusplus::server::com::orvane::velmar::system::FCController;
using sdbusplus::server::com::orvane::velmar::system::NicPort;
using Byte = unsigned char;
using Triple = std::tuple<short, int, long>;
using Variant2 = std::variant<Byte, Triple, std::string>;

constexpr const char* interface = Gantrytest::interface;
class Sample : public Served
{
  protected:
    Sample() : server(instantiate("/sample"))
    {
        trace.clear();
    }

    Gantrytest& instantiate(const char* path)
    {
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, path, nullptr);
        return newest<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest>();
    }

    Gantrytest& server;
    const support::Object sample{service, "/sample"};
};

using ByName = Sample;

TEST_F(ByName, OtherNamesSetNothingAndGetTheDefault)
{
    BLT blt(context->bus, "/blt");
    blt.fqdd("BIOS.Setup.1-1", true);
    blt.firmwareVersion("2.1", true);
    const auto before = client.get_all({service, "/blt"}, BLT::interface);
    for (const std::string& name :
         {std::string("FQDD"), std::string("fqd"), std::string("fqdd "), std::string("fqdd\0", 5),
          std::string("\0fqdd", 5), std::string("firmwareVersion"), std::string(),
          std::string(4, '\0'), std::string(256, 'x'), std::string(260, 'f')})
    {
        EXPECT_EQ(blt.getPropertyByName(name), BLT::PropertyVariant{""}) << name;
        EXPECT_NO_THROW(blt.setPropertyByName(name, "new", false)) << name;
        EXPECT_NO_THROW(blt.setPropertyByName(name, 7UL, false)) << name;
    }
    EXPECT_EQ(client.get_all({service, "/blt"}, BLT::interface), before);
    EXPECT_EQ(announced(), "");

    // The same property has another name on another interface.
    NicPort port(context->bus, "/port");
    port.setPropertyByName("fqdd", "lower", false);
    EXPECT_EQ(port.fqdd(), "");
    port.setPropertyByName("FQDD", "upper", false);
    EXPECT_EQ(port.fqdd(), "upper");

    const FCController controller(context->bus, "/controller");
    EXPECT_EQ(controller.getPropertyByName("no"), FCController::PropertyVariant{Byte{0}});
    const HWIOemFruCustomData fru(context->bus, "/fru");
    EXPECT_EQ(fru.getPropertyByName("no"), HWIOemFruCustomData::PropertyVariant{});
    EXPECT_EQ(server.getPropertyByName("no"), Gantrytest::PropertyVariant{false});
}

// What std::bad_variant_access says, or "" without one.
template <class Class>
std::string refusal(Class& object, const char* name, const typename Class::PropertyVariant& value)
{
    try
    {
        object.setPropertyByName(name, value, false);
        return {};
    }
    catch (const std::bad_variant_access& error)
    {
        return error.what();
    }
}

TEST_F(ByName, AnotherAlternativeThrowsAndTouchesNothing)
{
    const std::string wrong = "std::get: wrong index for variant";
    BLT blt(context->bus, "/blt");
    EXPECT_EQ(refusal(blt, "Version", "4"), wrong);
    EXPECT_EQ(refusal(blt, "Version", Byte{4}), wrong);
    EXPECT_EQ(refusal(blt, "Key", 4UL), wrong);
    EXPECT_EQ(blt.version(), 0);

    EXPECT_EQ(refusal(server, "PropVariant2", Byte{4}), wrong);
    EXPECT_EQ(refusal(server, "PropVariant2", std::string("text")), wrong);
    EXPECT_EQ(refusal(server, "PropByte", Variant2{Byte{4}}), wrong);
    EXPECT_EQ(refusal(server, "PropInt32", 4U), wrong);
    EXPECT_EQ(refusal(server, "PropVariant2", Variant2{"text"}), "");
    EXPECT_EQ(announced(), "PropVariant2: v <s \"text\">\n");

    struct Thrower
    {
        operator std::set<int>() const
        {
            throw 1;
        }
    };
    Gantrytest::PropertyVariant valueless;
    EXPECT_THROW(valueless.emplace<std::set<int>>(Thrower{}), int);
    EXPECT_EQ(refusal(server, "PropBoolean", valueless), "std::get: variant is valueless");
    EXPECT_EQ(refusal(server, "no", valueless), "");
}

TEST_F(ByName, SetsAsTheAccessorDoes)
{
    server.setPropertyByName("PropDouble", 1.5, true);
    server.setPropertyByName("PropDouble", 1.5, false); // too late to announce it
    server.setPropertyByName("PropInt64", std::numeric_limits<long>::min(), true);
    EXPECT_EQ(server.propInt64(), std::numeric_limits<long>::min());
    EXPECT_EQ(announced(), "");
    server.setPropertyByName("VersionTest", 2.5, false);
    EXPECT_EQ(server.propDouble(), 1.5);
    EXPECT_EQ(announced(), "VersionTest: d 2.5\n");

    struct Overriding : BLT
    {
        using BLT::BLT;
        using BLT::version;
        unsigned long version() const override
        {
            return BLT::version() + 1000;
        }
        unsigned long version(unsigned long value, bool skipSignal) override
        {
            return BLT::version(value + (skipSignal ? 1 : 2), skipSignal);
        }
    };
    Overriding blt(context->bus, "/blt");
    blt.setPropertyByName("Version", 5UL, true);
    EXPECT_EQ(blt.getPropertyByName("Version"), BLT::PropertyVariant{1006UL});
}

using DataStore = Sample;

TEST_F(DataStore, IsToldOfEverySetBehindItsAnnouncement)
{
    const std::string changed = "changed PropString\n";
    const auto told = [](const std::string& key)
    { return "caller_id\nset_key " + key + " Gantrytest /sample 7\n"; };
    server.propString("a");
    EXPECT_EQ(std::exchange(trace, {}), changed + told("a"));
    server.propString("a", false);
    EXPECT_EQ(std::exchange(trace, {}), told("a"));
    server.propString("b", true);
    EXPECT_EQ(std::exchange(trace, {}), told("b"));
    server.setPropertyByName("PropString", std::string("a"), false);
    EXPECT_EQ(std::exchange(trace, {}), changed + told("a"));

    // The bus's way: equal, then another value.
    EXPECT_TRUE(client.set(sample, interface, "PropString", "s", "a").ok());
    EXPECT_EQ(std::exchange(trace, {}), told("a"));
    EXPECT_TRUE(client.set(sample, interface, "PropString", "s", "c").ok());
    EXPECT_EQ(std::exchange(trace, {}), changed + told("c"));

    // Of no other property, and of none that is only read or refused.
    server.propInt32(7, true);
    EXPECT_EQ(client.get(sample, interface, "PropString").text, "s \"c\"");
    EXPECT_FALSE(client.set(sample, interface, "PropString", "i", 1).ok());
    EXPECT_EQ(trace, "");

    // What fails in the store is stored and announced by then.
    store_is_full = true;
    EXPECT_THROW(server.propString("d"), std::runtime_error);
    EXPECT_EQ(std::exchange(trace, {}), changed + told("d"));
    logged();
    EXPECT_FALSE(client.set(sample, interface, "PropString", "s", "e").ok());
    EXPECT_EQ(logged(2), "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: store is full\\n\n");
    EXPECT_EQ(client.get(sample, interface, "PropString").text, "s \"e\"");
    store_is_full = false;
}

TEST_F(DataStore, ForgetsTheLastKeyWithTheObject)
{
    server.propString("a", true);
    server.propString("b", true);
    instantiate("/unset");
    trace.clear();
    // The last is destroyed first; each has told the log just before.
    GANTRY_context_free(&context);
    EXPECT_EQ(trace, "remove  logged 1\nremove b logged 1\n");
}

} // namespace
