// Objects after they were published: found, announced, and taken down one by one.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <malloc.h>
#include <systemd/sd-event.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "support/client.hpp"
#include "support/open_fds.hpp"

namespace
{

using support::captured_log::count;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::SizeIs;

constexpr const char* service = "com.example.objects";
constexpr const char* async = "com.orvane.velmar.sample.async";
constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr const char* usb = "com.orvane.velmar.system.USB";
constexpr const char* blt = "com.orvane.velmar.system.BLT";

class Objects : public testing::Test
{
  protected:
    Objects()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, service);
        client.subscribe();
    }

    ~Objects() override
    {
        GANTRY_context_free(&context);
    }

    GANTRY_instance* find(const char* interface, const char* path = nullptr)
    {
        GANTRY_instance* found = nullptr;
        GANTRY_instance_find(context, interface, path, &found);
        return found;
    }

    GANTRY_instance* add_usb(const char* path)
    {
        GANTRY_instantiate__com_orvane_velmar_system_USB(context, nullptr, path, nullptr);
        return find(usb, path);
    }

    GANTRY_instance* add_blt(const char* path)
    {
        GANTRY_instantiate__com_orvane_velmar_system_BLT(context, nullptr, path, nullptr);
        return find(blt, path);
    }

    std::string error_of(const char* path, const char* interface, const char* member)
    {
        return client.call({service, path}, interface, member).error_name;
    }

    bool has_manager(const char* path)
    {
        return error_of(path, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects").empty();
    }

    // "path: body" of the signals of this member since the last look.
    std::vector<std::string> seen(const char* member)
    {
        client.settle(service);
        std::vector<std::string> result;
        for (const auto& signal : client.signals(member))
        {
            result.push_back(signal.path + ": " + signal.body);
        }
        client.clear_signals();
        return result;
    }

    GANTRY_cpp_context* context = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

TEST_F(Objects, AreFoundByInterfaceAndPath)
{
    auto* first = add_usb("/u/1");
    auto* second = add_usb("/u/2");
    auto* third = add_blt("/u/1");
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(find(usb), first);
    EXPECT_EQ(find(usb, "/u/2"), second);
    EXPECT_EQ(find(blt, "/u/1"), third);
    char* path = nullptr;
    GANTRY_instance_get_path(second, &path);
    EXPECT_STREQ(path, "/u/2");
    GANTRY_instance_path_free(&path);

    EXPECT_EQ(find(blt, "/u/2"), nullptr);
    EXPECT_EQ(find(usb, "/u"), nullptr);
    EXPECT_EQ(find(async), nullptr);
    EXPECT_EQ(find(nullptr), nullptr);
    GANTRY_instance* found = nullptr;
    GANTRY_instance_find(nullptr, usb, nullptr, &found); // the thread's own context
    EXPECT_EQ(found, first);
    GANTRY_instance_find(context, usb, nullptr, nullptr);

    // The oldest that is left.
    GANTRY_instance_free(&first);
    EXPECT_EQ(find(usb), second);

    const char* interface = nullptr;
    GANTRY_instance_get_interface(third, &interface);
    GANTRY_instance_free(&third);
    EXPECT_STREQ(interface, blt);
    GANTRY_instance_get_interface(nullptr, &interface);
    GANTRY_instance_get_interface(second, nullptr);
    EXPECT_STREQ(interface, blt);
}

TEST_F(Objects, AreAnnouncedAndRemovedOnTheBus)
{
    auto* plugged = add_usb("/u");
    EXPECT_THAT(seen("InterfacesAdded"), IsEmpty());
    int error = -1;
    GANTRY_instance_announce_added(plugged, &error);
    EXPECT_EQ(error, 0);
    EXPECT_THAT(seen("InterfacesAdded"),
                ElementsAre(testing::AllOf(HasSubstr("/u: "), HasSubstr(usb), HasSubstr("Key"))));
    GANTRY_instance_announce_added(plugged, nullptr);
    GANTRY_instance_announce_added(nullptr, &error);
    EXPECT_EQ(error, EINVAL);
    EXPECT_THAT(seen("InterfacesAdded"), SizeIs(1));

    logged();
    GANTRY_instance_free(&plugged);
    EXPECT_EQ(plugged, nullptr);
    GANTRY_instance_free(&plugged);
    GANTRY_instance_free(nullptr);
    EXPECT_EQ(logged(2), "");
    EXPECT_THAT(seen("InterfacesRemoved"),
                ElementsAre("/u: oas \"/u\", [\"" + std::string(usb) + "\"]"));
    EXPECT_EQ(error_of("/u", "org.freedesktop.DBus.Peer", "Ping"), "");
    EXPECT_FALSE(has_manager("/u"));

    // The path is free again, also at once.
    plugged = add_usb("/u");
    GANTRY_instance_free(&plugged);
    EXPECT_NE(add_usb("/u"), nullptr);
    EXPECT_EQ(logged(2), "");
}

// Both the object manager that the context holds and one that the connection does.
TEST_F(Objects, TakeTheirOwnObjectManagerAlong)
{
    for (const bool newest : {false, true})
    {
        auto* one = add_usb("/m");
        auto* other = add_blt("/m");
        add_usb("/m/below");
        if (newest)
        {
            seen("InterfacesRemoved");
            GANTRY_instance_free(&other);
            EXPECT_THAT(seen("InterfacesRemoved"), ElementsAre(HasSubstr(blt)));
            // The other interface stays, and so does an object manager for it.
            EXPECT_THAT(client.managed_objects({service, "/m"}), ElementsAre(Key("/m/below")));
            other = add_blt("/m");
        }
        GANTRY_instance_free(&one);
        EXPECT_TRUE(has_manager("/m"));
        EXPECT_TRUE(client.get({service, "/m"}, blt, "Key").ok());
        GANTRY_instance_free(&other);
        EXPECT_FALSE(has_manager("/m"));
        EXPECT_TRUE(has_manager("/m/below"));
        auto* below = find(usb, "/m/below");
        GANTRY_instance_free(&below);
        EXPECT_FALSE(has_manager("/m/below"));
    }
}

// Slots are memory of the connection's.
TEST_F(Objects, ComeAndGoAThousandTimes)
{
    auto* stays = add_blt("/stays");
    const auto cycle = [&](int times)
    {
        for (int time = 0; time < times; ++time)
        {
            auto* one = add_usb("/c/1");
            auto* other = add_usb("/c/2");
            auto* shares = add_blt("/c/1");
            GANTRY_instance_free(&one);
            GANTRY_instance_free(&shares);
            GANTRY_instance_free(&other);
            support::captured_log::clear();
        }
        GANTRY_dbus_loop_one_pass(context);
        support::captured_log::clear();
    };
    cycle(100);
    const auto fds = support::open_fds();
    const auto used = mallinfo2().uordblks;
    cycle(1000);
    EXPECT_LT(mallinfo2().uordblks, used + 10'000);
    EXPECT_EQ(support::open_fds(), fds);
    EXPECT_EQ(context->tracker.size(), 1U);
    EXPECT_EQ(find(blt), stays);
    EXPECT_TRUE(has_manager("/stays"));
}

struct Loop
{
    const char* name;
    void (*run)(GANTRY_cpp_context*);
    void (*stop)(GANTRY_cpp_context*);
    const char* farewell;
};

void leave_to_itself(GANTRY_cpp_context* /*context*/)
{
}

const Loop loops[] = {
    {"loop", GANTRY_dbus_loop, [](GANTRY_cpp_context* context) { context->running = false; }, ""},
    {"one_pass", GANTRY_dbus_loop_one_pass, leave_to_itself, ""},
    {"sdloop", GANTRY_dbus_sdloop,
     [](GANTRY_cpp_context* context) { sd_event_exit(context->event.get(), 0); },
     "1 gantrycommon.GANTRY_dbus_sdloop: sdloop exiting, rc=0\\n\n"},
    {"a_hosts_own", [](GANTRY_cpp_context* context) { sd_event_run(context->event.get(), 1'000); },
     leave_to_itself, ""},
};

class FreedInItsCallback : public Objects, public testing::WithParamInterface<Loop>
{
  protected:
    static FreedInItsCallback& of(GANTRY_instance* instance)
    {
        void* test = nullptr;
        GANTRY_instance_get_user_private(instance, &test);
        return *static_cast<FreedInItsCallback*>(test);
    }

    static void free_itself(GANTRY_instance* instance, char** out)
    {
        auto& test = of(instance);
        auto* freed = instance;
        GANTRY_instance_free(&freed);
        EXPECT_EQ(freed, nullptr);
        freed = instance;
        GANTRY_instance_free(&freed); // is nothing more to do
        if (test.makes_pass)
        {
            GANTRY_dbus_loop_one_pass(test.context);
            EXPECT_EQ(count("destructor called, DAL true"), 0U);
        }
        const char* interface = nullptr;
        char* path = nullptr;
        GANTRY_instance_get_interface(instance, &interface);
        GANTRY_instance_get_path(instance, &path);
        EXPECT_EQ(test.find(interface, path), nullptr);
        *out = path;
    }

    static void end_loop(GANTRY_instance* instance, char* /*in*/, char** /*out*/)
    {
        auto& test = of(instance);
        test.destroyed = count("destructor called, DAL true");
        test.is_ended = true;
        GetParam().stop(test.context);
    }

    void instantiate()
    {
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &sample_table, "/reply",
                                                                this);
        GANTRY_instantiate__com_orvane_velmar_sample_async(context, &async_table, "/message", this);
        GANTRY_instantiate__com_orvane_velmar_sample_async(context, &end_table, "/end", this);
        logged();
    }

    const GANTRY_table__com_orvane_velmar_sample_gantrytest sample_table = []
    {
        GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
        table.GetString = free_itself;
        return table;
    }();
    const GANTRY_table__com_orvane_velmar_sample_async async_table{free_itself, nullptr};
    const GANTRY_table__com_orvane_velmar_sample_async end_table{nullptr, end_loop};
    std::size_t destroyed = 0;
    bool makes_pass = false;
    bool is_ended = false;
};

INSTANTIATE_TEST_SUITE_P(Loops, FreedInItsCallback, testing::ValuesIn(loops),
                         [](const auto& loop) { return loop.param.name; });

TEST_P(FreedInItsCallback, GoesWhenTheCallbackHasReturned)
{
    instantiate();
    support::Client caller{[this]
                           {
                               if (!is_ended)
                               {
                                   GetParam().run(context);
                               }
                           }};
    caller.subscribe("type='signal',member='InterfacesRemoved'");
    // All in the queue before the first is served.
    auto first = caller.start({service, "/reply"}, gantrytest, "GetString");
    auto second = caller.start({service, "/message"}, async, "NoParam");
    auto again = caller.start({service, "/reply"}, gantrytest, "GetString");
    auto last = caller.start({service, "/end"}, async, "OneParam", "s", "");
    sd_bus_flush(caller.bus());

    EXPECT_EQ(caller.wait(std::move(first)).text, "s \"/reply\"");
    EXPECT_EQ(caller.wait(std::move(second)).text, "s \"/message\"");
    EXPECT_THAT(caller.wait(std::move(again)).error_name,
                testing::AnyOf("org.freedesktop.DBus.Error.UnknownObject",
                               "org.freedesktop.DBus.Error.UnknownMethod"));
    EXPECT_TRUE(caller.wait(std::move(last)).ok());
    EXPECT_EQ(destroyed, 1U);
    EXPECT_THAT(caller.signals(), SizeIs(2));
    EXPECT_THAT(context->tracker, SizeIs(1));
    EXPECT_EQ(logged(2), GetParam().farewell);
}

// What serves the bus isn't the event loop, which so runs inside the callback.
TEST_F(FreedInItsCallback, GoesWithTheNextPassBehindIt)
{
    instantiate();
    makes_pass = true;
    support::Client caller{[this] { sd_bus_process(GANTRY_get_sd_bus(context->bus), nullptr); }};
    EXPECT_TRUE(caller.call({service, "/reply"}, gantrytest, "GetString").ok());
    EXPECT_TRUE(caller.call({service, "/message"}, async, "NoParam").ok());
    EXPECT_NE(context->leaving, nullptr);
    GANTRY_dbus_loop_one_pass(context);
    EXPECT_EQ(context->leaving, nullptr);
    EXPECT_EQ(count("destructor called, DAL true"), 1U); // the other's class logs none
}

// The context goes before the event loop has come to it.
TEST_F(FreedInItsCallback, GoesWithItsContextAtTheLatest)
{
    instantiate();
    support::Client caller{[this] { sd_bus_process(GANTRY_get_sd_bus(context->bus), nullptr); }};
    EXPECT_TRUE(caller.call({service, "/reply"}, gantrytest, "GetString").ok());
    EXPECT_EQ(count("destructor called, DAL true"), 0U);
    auto* event = sd_event_ref(context->event.get());
    GANTRY_context_free(&context);
    EXPECT_EQ(count("destructor called, DAL true"), 1U);
    EXPECT_EQ(sd_event_run(event, 1), 0);
    sd_event_unref(event);
}

} // namespace
