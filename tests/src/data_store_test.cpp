// What the data store is told, and when: the store is the test's own, and both it and sd-bus write
// into one trace.
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <systemd/sd-bus.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/loop.h>
#include <tallybook.hpp>

#include "stand_in.hpp"
#include "support/captured_log.hpp"
#include "support/client.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> trace;
bool broken = false;

std::vector<std::string> traced()
{
    return std::exchange(trace, {});
}

constexpr const char* interface = Gantrytest::interface;

} // namespace

namespace Tallybook
{

void set_key(const std::string& key, const std::string& class_name, const std::string& object_path,
             unsigned short caller_id)
{
    trace.push_back("set_key " + key + ' ' + class_name + ' ' + object_path + ' ' +
                    std::to_string(caller_id));
    if (broken)
    {
        throw std::runtime_error("store is full");
    }
}

void remove(const std::string& key) noexcept
{
    const auto logged = support::captured_log::count("destructor called, DAL true", "~Gantrytest");
    trace.push_back("remove " + key + " logged " + std::to_string(logged));
    support::captured_log::clear();
}

} // namespace Tallybook

int tallybook_caller_id(void)
{
    static int id = 0x1'0000; // the store takes 16 bits of it
    trace.push_back("caller_id");
    return ++id;
}

extern "C" int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path,
                                                   const char* of_interface, char** names)
{
    trace.push_back(std::string("changed ") + names[0]);
    return stand_in::hidden<decltype(sd_bus_emit_properties_changed_strv)>(__func__)(
        bus, path, of_interface, names);
}

namespace
{

class DataStore : public testing::Test
{
  protected:
    DataStore()
    {
        GANTRY_context_new(&context);
        support::captured_log::clear();
    }

    ~DataStore() override
    {
        GANTRY_context_free(&context);
        broken = false;
        trace.clear();
    }

    Gantrytest& instantiate(const char* path)
    {
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, path, nullptr);
        return *static_cast<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest*>(
            context->tracker.back().object);
    }

    // The trace, the caller id left out, which counts the calls.
    static std::vector<std::string> calls()
    {
        auto lines = traced();
        for (std::string& line : lines)
        {
            if (line.starts_with("set_key"))
            {
                line.resize(line.rfind(' '));
            }
        }
        return lines;
    }

    GANTRY_cpp_context* context = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

TEST_F(DataStore, IsToldOfEverySetBehindItsAnnouncement)
{
    Gantrytest& object = instantiate("/one");
    EXPECT_THAT(traced(), IsEmpty());
    const std::string told = "set_key a Gantrytest /one";

    object.propString("a");
    EXPECT_THAT(traced(), ElementsAre("changed PropString", "caller_id", told + " 1"));
    object.propString("a", false);
    EXPECT_THAT(traced(), ElementsAre("caller_id", told + " 2"));
    object.propString("a", true);
    EXPECT_THAT(calls(), ElementsAre("caller_id", told));
    object.propString("b", true);
    EXPECT_THAT(calls(), ElementsAre("caller_id", "set_key b Gantrytest /one"));
    object.setPropertyByName("PropString", std::string("a"), false);
    EXPECT_THAT(calls(), ElementsAre("changed PropString", "caller_id", told));

    // The bus's way: equal, then another value.
    const support::Object one{interface, "/one"};
    EXPECT_TRUE(client.set(one, interface, "PropString", "s", "a").ok());
    EXPECT_THAT(calls(), ElementsAre("caller_id", told));
    EXPECT_TRUE(client.set(one, interface, "PropString", "s", "c").ok());
    EXPECT_THAT(calls(),
                ElementsAre("changed PropString", "caller_id", "set_key c Gantrytest /one"));

    // Of no other property, and of none that is only read or refused.
    object.propInt32(7, true);
    object.setPropertyByName("PropVariant2", decltype(object.propVariant2()){"text"}, true);
    EXPECT_EQ(client.get(one, interface, "PropString").text, "s \"c\"");
    EXPECT_FALSE(client.set(one, interface, "PropString", "i", 1).ok());
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(DataStore, ForgetsTheLastKeyWithTheObject)
{
    instantiate("/unset");
    Gantrytest& object = instantiate("/two");
    Gantrytest& twin = instantiate("/three");
    object.propString("a", true);
    object.propString("b", true);
    twin.propString("b", true);
    EXPECT_THAT(calls(), ElementsAre("caller_id", "set_key a Gantrytest /two", "caller_id",
                                     "set_key b Gantrytest /two", "caller_id",
                                     "set_key b Gantrytest /three"));
    // The last is destroyed first; each has told the log just before.
    GANTRY_context_free(&context);
    EXPECT_THAT(calls(), ElementsAre("remove b logged 1", "remove b logged 1", "remove  logged 1"));
}

TEST_F(DataStore, FailsBehindTheStoredAndAnnouncedValue)
{
    Gantrytest& object = instantiate("/one");
    const support::Object one{interface, "/one"};
    broken = true;
    EXPECT_THROW(object.propString("a"), std::runtime_error);
    EXPECT_EQ(object.propString(), "a");
    EXPECT_THAT(calls(),
                ElementsAre("changed PropString", "caller_id", "set_key a Gantrytest /one"));

    support::captured_log::clear();
    EXPECT_EQ(client.set(one, interface, "PropString", "s", "b").state,
              support::Reply::State::error);
    EXPECT_THAT(support::captured_log::lines(2),
                ElementsAre("GANTRY_dbus_loop_one_pass: store is full\n"));
    EXPECT_EQ(client.get(one, interface, "PropString").text, "s \"b\"");
}

} // namespace
