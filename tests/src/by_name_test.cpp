// What a host meets that works with names: which names and values are taken, and how. That every
// property of the catalogue is there under its name is tested with the tables.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include <gmock/gmock.h>

#include <com/orvane/velmar/hwi/HWIOemFruCustomData/gantry_server.hpp>
#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <com/orvane/velmar/system/FCController/gantry_server.hpp>
#include <com/orvane/velmar/system/NicPort/gantry_server.hpp>
#include <com/orvane/velmar/system/QSFPD/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/loop.h>

#include "support/client.hpp"

namespace
{

std::atomic<std::size_t> allocations;

} // namespace

// The library's too: the dynamic linker prefers the program's.
void* operator new(std::size_t size)
{
    ++allocations;
    void* memory = std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace
{

using sdbusplus::server::com::orvane::velmar::hwi::HWIOemFruCustomData;
using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using sdbusplus::server::com::orvane::velmar::system::BLT;
using sdbusplus::server::com::orvane::velmar::system::FCController;
using sdbusplus::server::com::orvane::velmar::system::NicPort;
using sdbusplus::server::com::orvane::velmar::system::QSFPD;
using Byte = unsigned char;
using Triple = std::tuple<short, int, long>;
using Variant2 = std::variant<Byte, Triple, std::string>;

constexpr const char* service = "com.example.by_name";

class ByName : public testing::Test
{
  protected:
    ByName()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, service);
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, "/sample",
                                                                nullptr);
        client.subscribe();
    }

    ~ByName() override
    {
        GANTRY_context_free(&context);
    }

    Gantrytest& sample()
    {
        return *static_cast<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest*>(
            context->tracker.front().object);
    }

    // "Member: value" of each change that was announced since the last look.
    std::vector<std::string> announced()
    {
        client.settle(service);
        std::vector<std::string> changes;
        for (const support::Signal& signal : client.signals("PropertiesChanged"))
        {
            for (const auto& [member, value] : signal.changed)
            {
                changes.push_back(member + ": " + value);
            }
        }
        client.clear_signals();
        return changes;
    }

    GANTRY_cpp_context* context = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

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

TEST_F(ByName, OtherNamesSetNothingAndGetTheDefault)
{
    BLT blt(context->bus, "/blt");
    blt.fqdd("BIOS.Setup.1-1", true);
    blt.firmwareVersion("2.1", true);
    const auto before = client.get_all({service, "/blt"}, BLT::interface);
    for (const std::string& name :
         {std::string("FQDD"), std::string("Fqdd"), std::string("fqd"), std::string("fqdd "),
          std::string("fqdd\0", 5), std::string("\0fqdd", 5), std::string("friendlyFQDD"),
          std::string("firmwareVersion"), std::string("DohObjStatus"), std::string("key"),
          std::string(), std::string(4, '\0'), std::string(256, 'x'), std::string(260, 'f'),
          std::string("\xC3\xA9")})
    {
        EXPECT_EQ(blt.getPropertyByName(name), BLT::PropertyVariant{""}) << name;
        for (const BLT::PropertyVariant& value :
             {BLT::PropertyVariant{"new"}, BLT::PropertyVariant{7UL},
              BLT::PropertyVariant{Byte{7}}})
        {
            EXPECT_NO_THROW(blt.setPropertyByName(name, value, false)) << name;
        }
    }
    EXPECT_EQ(client.get_all({service, "/blt"}, BLT::interface), before);
    EXPECT_THAT(announced(), testing::IsEmpty());

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
    EXPECT_EQ(sample().getPropertyByName("no"), Gantrytest::PropertyVariant{false});
}

TEST_F(ByName, ValuesKeepTheirWidth)
{
    const auto both_ways = [](auto& object, const char* name, auto value)
    {
        object.setPropertyByName(name, value, true);
        EXPECT_EQ(std::get<decltype(value)>(object.getPropertyByName(name)), value) << name;
    };
    const auto limits = [&]<class Type>(auto& object, const char* name, Type)
    {
        both_ways(object, name, std::numeric_limits<Type>::max());
        both_ways(object, name, std::numeric_limits<Type>::lowest());
    };
    Gantrytest& object = sample();
    limits(object, "PropByte", Byte{});
    limits(object, "PropInt16", short{});
    limits(object, "PropUInt16", static_cast<unsigned short>(0));
    limits(object, "PropInt32", int{});
    limits(object, "PropUInt32", 0U);
    limits(object, "PropInt64", 0L);
    limits(object, "PropUInt64", 0UL);
    limits(object, "PropDouble", double{});
    limits(object, "PropBoolean", bool{});
    both_ways(object, "PropString", std::string("a\0b", 3));

    QSFPD module(context->bus, "/module");
    limits(module, "TempLowAlarmThreshold", short{});
    EXPECT_EQ(module.tempLowAlarmThreshold(), -32768);
}

TEST_F(ByName, AnotherAlternativeThrowsAndTouchesNothing)
{
    const std::string wrong = "std::get: wrong index for variant";
    BLT blt(context->bus, "/blt");
    blt.version(3, true);
    EXPECT_EQ(refusal(blt, "Version", "4"), wrong);
    EXPECT_EQ(refusal(blt, "Version", Byte{4}), wrong);
    EXPECT_EQ(refusal(blt, "Key", 4UL), wrong);
    EXPECT_EQ(refusal(blt, "dohObjStatus", 4UL), wrong);
    EXPECT_EQ(blt.version(), 3);
    EXPECT_EQ(blt.dohObjStatus(), 1);

    Gantrytest& object = sample();
    EXPECT_EQ(refusal(object, "PropVariant2", Byte{4}), wrong);
    EXPECT_EQ(refusal(object, "PropVariant2", std::string("text")), wrong);
    EXPECT_EQ(refusal(object, "PropByte", Variant2{Byte{4}}), wrong);
    EXPECT_EQ(refusal(object, "PropInt32", 4U), wrong);
    EXPECT_EQ(refusal(object, "PropArray1", std::vector<std::vector<Byte>>{}), wrong);
    EXPECT_EQ(refusal(object, "PropVariant2", Variant2{"text"}), "");
    EXPECT_EQ(object.propVariant2(), Variant2{"text"});
    EXPECT_EQ(object.propByte(), 0);
    EXPECT_THAT(announced(), testing::ElementsAre("PropVariant2: v <s \"text\">"));

    struct Thrower
    {
        operator std::set<int>() const
        {
            throw 1;
        }
    };
    Gantrytest::PropertyVariant valueless;
    EXPECT_THROW(valueless.emplace<std::set<int>>(Thrower{}), int);
    ASSERT_TRUE(valueless.valueless_by_exception());
    for (const char* name : {"PropBoolean", "PropSet1", "PropVariant2", "PropString"})
    {
        EXPECT_EQ(refusal(object, name, valueless), "std::get: variant is valueless");
    }
    EXPECT_EQ(refusal(object, "no", valueless), "");
}

TEST_F(ByName, SetsAsTheAccessorDoes)
{
    Gantrytest& object = sample();
    object.setPropertyByName("PropDouble", 1.5, true);
    object.setPropertyByName("PropDouble", 1.5, false); // too late to announce it
    EXPECT_EQ(object.getPropertyByName("PropDouble"), Gantrytest::PropertyVariant{1.5});
    EXPECT_EQ(object.versionTest(), 0);
    EXPECT_THAT(announced(), testing::IsEmpty());
    object.setPropertyByName("VersionTest", 2.5, false);
    EXPECT_EQ(object.propDouble(), 1.5);
    EXPECT_THAT(announced(), testing::ElementsAre("VersionTest: d 2.5"));

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
            skipped = skipSignal;
            return BLT::version(value + 1, skipSignal);
        }
        bool skipped = false;
    };
    Overriding blt(context->bus, "/blt");
    blt.setPropertyByName("Version", 5UL, true);
    EXPECT_TRUE(blt.skipped);
    EXPECT_EQ(blt.getPropertyByName("Version"), BLT::PropertyVariant{1006UL});
}

TEST_F(ByName, FindingAllocatesNothing)
{
    QSFPD module(context->bus, "/module");
    const std::string no_name = "RX1InputPowerValuf";
    const std::string name = "RX1InputPowerValue";
    const QSFPD::PropertyVariant one = static_cast<unsigned short>(1);
    const QSFPD::PropertyVariant two = static_cast<unsigned short>(2);
    std::size_t before = allocations;
    const auto counted = std::make_unique<int>();
    if (allocations == before)
    {
        GTEST_SKIP() << "valgrind's operator new is in the way";
    }
    before = allocations;
    for (int round = 0; round < 10; ++round)
    {
        module.setPropertyByName(name, round % 2 == 0 ? one : two, true);
        module.setPropertyByName(no_name, one, true);
        const auto value = module.getPropertyByName(name);
        ASSERT_TRUE(std::holds_alternative<unsigned short>(value));
    }
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(module.rX1InputPowerValue(), 2);
}

} // namespace
