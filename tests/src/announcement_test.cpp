// Changes that wait: while the host holds them, and while the bus daemon doesn't read.

#include "src/served.hpp"

#include <com/orvane/velmar/system/BLT/server.hpp>
#include <gantry/object.hpp>
#include <gantry/property.hpp>

using gantry::HeldChanges;

// How many messages the library is told that the write queue has; 0 for as many as there are.
static std::uint64_t pretended = 0;

extern "C" int sd_bus_get_n_queued_write(sd_bus* bus, std::uint64_t* count)
{
    if (pretended != 0)
    {
        *count = pretended;
        return 0;
    }
    return interpose::hidden<decltype(sd_bus_get_n_queued_write)>(__func__)(bus, count);
}

namespace
{

constexpr const char* sample = "com.orvane.velmar.sample.gantrytest";
constexpr auto create = GANTRY_instantiate__com_orvane_velmar_sample_gantrytest;

struct Unreadable : sdbusplus::server::com::orvane::velmar::system::BLT
{
    using BLT::BLT;
    using BLT::version;

    unsigned long version() const override
    {
        throw std::runtime_error("unreadable");
    }
};

class Announcement : public Served
{
  protected:
    Announcement()
    {
        object = publish(create, "/object", &table);
    }

    void set(GANTRY_instance* instance, int value)
    {
        int error = 0;
        GANTRY_property_set_int32(instance, "PropInt32", value, false, &error);
        EXPECT_EQ(error, 0);
    }

    // Changes until they wait, and some more; the last value is the one that counts.
    void change(int count)
    {
        last = count;
        for (int value = 1; value <= last; ++value)
        {
            set(object, value);
        }
        EXPECT_EQ(logged(2), "1 announcement.is_stalled: changes wait, dbus has 10000 messages in "
                             "write queue\n");
    }
    void change_while_stalled()
    {
        client.settle(service);
        pretended = 10'000;
        change(3);
        pretended = 0;
    }
    // As above, with a daemon that doesn't read.
    void change_while_stopped()
    {
        client.settle(service);
        kill(-support::bus().pid(), SIGSTOP);
        change(40'000);
    }

    // What the client has been sent last of the property.
    std::string seen()
    {
        for (auto signal = client.signals().rbegin(); signal != client.signals().rend(); ++signal)
        {
            if (signal->sender == service && signal->changed.contains("PropInt32"))
            {
                return signal->changed["PropInt32"];
            }
        }
        return "";
    }
    bool sees_last()
    {
        const auto is_last = [this] { return seen() == "i " + std::to_string(last); };
        // Under valgrind what has waited takes longer to be read than one wait lasts.
        return client.wait_for(is_last) || client.wait_for(is_last) || client.wait_for(is_last);
    }

    int last = 0;
    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    GANTRY_instance* object = nullptr;
};

TEST_F(Announcement, StalledDaemonGetsTheLastValuesAndTheQueueStaysBounded)
{
    change_while_stopped();
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(GANTRY_get_sd_bus(context->bus), &queued);
    EXPECT_LE(queued, 10'000U);
    kill(-support::bus().pid(), SIGCONT);
    EXPECT_TRUE(sees_last());
}

// The queue may be written without an event: then nothing but a look at it sends what waits.
TEST_F(Announcement, DrainedQueueIsNoticedByALoopAndByTheHostsOwnEventLoop)
{
    change_while_stalled();
    pretended = 1'000; // too many yet
    client.settle(service);
    EXPECT_EQ(seen(), "");
    pretended = 999;
    EXPECT_TRUE(sees_last());

    pretended = 0;
    logged();
    GANTRY_property_set_int32(object, "PropInt32", 0, true, nullptr);
    change_while_stalled();
    support::Client outside{[this, runs = 0]() mutable
                            {
                                pretended = ++runs < 20 ? 10'000 : 0;
                                sd_event_run(context->event.get(), 10'000);
                            }};
    outside.subscribe();
    EXPECT_TRUE(outside.wait_for(
        [&]
        {
            return std::any_of(outside.signals().begin(), outside.signals().end(),
                               [](const auto& signal)
                               { return signal.changed.count("PropInt32"); });
        }));
}

TEST_F(Announcement, ContextThatIsFreedSendsWhatWaits)
{
    for (const bool is_shared : {true, false})
    {
        GANTRY_use_default = is_shared;
        make();
        object = publish(create, "/object", &table);
        change_while_stalled();
        GANTRY_context_free(&context);
        EXPECT_TRUE(sees_last()) << seen();
        client.signals().clear();
        make();
    }
    GANTRY_use_default = true;
}

TEST_F(Announcement, ContextThatIsFreedWaitsForAStoppedDaemonNoLongerThanASecond)
{
    GANTRY_use_default = false;
    make();
    GANTRY_use_default = true;
    object = publish(create, "/object", &table);
    change_while_stopped();
    const auto begun = std::chrono::steady_clock::now();
    GANTRY_context_free(&context);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
    EXPECT_THAT(logged(2), testing::MatchesRegex("2 connection.write_what_is_left: 1000[0-9] "
                                                 "messages are dropped that the bus didn't take in "
                                                 "a second\n"));
    kill(-support::bus().pid(), SIGCONT);
    make();
    client.settle(service);
    client.signals().clear();
}

TEST_F(Announcement, WhatComesAndGoesWhileStalledIsToldOnceInTheOrderOfItsPath)
{
    const auto come = [this](const char* path)
    {
        auto* instance = publish(create, path, &table);
        GANTRY_instance_announce_added(instance, nullptr);
        return instance;
    };
    sent();
    pretended = 10'000;
    std::size_t before = 0;
    for (int round = 0; round < 1'000; ++round)
    {
        logged();
        before = round == 100 ? heap_in_use() : before;
        GANTRY_instance_free(&object);
        object = come("/object");
        set(object, round);
        auto* brief = come("/brief");
        GANTRY_instance_free(&brief);
    }
    EXPECT_LE(heap_in_use(), before + 32'000);
    for (int round = 0; round < 2; ++round)
    {
        auto* listed = come("/object/listed");
        EXPECT_TRUE(client
                        .call({service, "/object"}, "org.freedesktop.DBus.ObjectManager",
                              "GetManagedObjects")
                        .ok());
        GANTRY_instance_free(&listed);
    }
    auto* written = come("/written");
    EXPECT_TRUE(client.set({service, "/written"}, sample, "PropInt32", "i", 1).ok());
    GANTRY_instance_announce_added(written, nullptr); // known by now, it is removed all the same
    GANTRY_instance_free(&written);
    pretended = 0;
    GANTRY_dbus_loop_one_pass(context);
    client.settle(service);
    std::string order;
    for (const auto& each : client.signals())
    {
        // The daemon may still pass on what an earlier test's connection sent.
        const std::string body = each.member == "InterfacesRemoved" ? ' ' + each.body : "";
        order += each.sender == service ? each.path + ' ' + each.member + body + '\n' : "";
    }
    EXPECT_EQ(order, "/written InterfacesAdded\n" + // before the reply
                         removed("/object", sample) + "/object InterfacesAdded\n" +
                         removed("/object/listed", sample) + removed("/written", sample));
    logged();
}

TEST_F(Announcement, HeldChangesAreOneSignalForEachObjectInAnyWayTheyAreSet)
{
    auto* second = publish(create, "/second");
    auto* freed = publish(create, "/freed");
    sent();
    {
        const HeldChanges held;
        GANTRY_context_hold_changes(context);
        for (int value = 1; value <= 3; ++value)
        {
            set(object, value);
            set(second, value + 10);
            set(freed, value);
        }
        gantry::object<Sample>(second)->propByte(5);
        const char* const names[] = {"PropString", nullptr};
        GANTRY_property_announce(second, names, nullptr);
        GANTRY_instance_free(&freed);
        int error = -1;
        GANTRY_context_send_changes(context, &error); // the inner pair's
        EXPECT_EQ(error, 0);
    }
    const std::string changed = " PropertiesChanged sa{sv}as \"" + std::string(sample) + "\", ";
    EXPECT_EQ(sent(), removed("/freed", sample) + "/object" + changed +
                          "{\"PropInt32\": <i 3>}, []\n/second" + changed +
                          "{\"PropByte\": <y 5>, \"PropInt32\": <i 13>, \"PropString\": <s \"\">}, "
                          "[]\n");
    EXPECT_EQ(logged(2), "");
    int error = 0;
    GANTRY_context_send_changes(context, &error);
    EXPECT_EQ(error, EINVAL);

    // A getter that throws keeps no other object's changes from being announced.
    Unreadable unreadable(context->bus, "/unreadable");
    GANTRY_context_hold_changes(context);
    unreadable.version(3);
    set(object, 9);
    GANTRY_context_send_changes(context, &error);
    EXPECT_EQ(error, EIO);
    EXPECT_EQ(sent(), "/object" + changed + "{\"PropInt32\": <i 9>}, []\n");

    // Nor does a property that never announces a change.
    auto* partition = publish(GANTRY_instantiate__com_orvane_velmar_system_NicPartition, "/part");
    sent();
    {
        const HeldChanges held;
        GANTRY_property_set_string(partition, "RDMAOSDriver", "a", false, nullptr);
        GANTRY_property_set_string(partition, "FQDD", "b", false, nullptr);
    }
    EXPECT_EQ(sent(), "/part PropertiesChanged sa{sv}as \"com.orvane.velmar.system.NicPartition\", "
                      "{\"FQDD\": <s \"b\">}, []\n");

    // They wait on for a daemon that doesn't read, and are logged if they are lost.
    GANTRY_context_hold_changes(context);
    set(object, 10);
    pretended = 10'000;
    GANTRY_context_send_changes(context, nullptr);
    EXPECT_EQ(sent(), "");
    pretended = 0;
    EXPECT_EQ(sent(), "/object" + changed + "{\"PropInt32\": <i 10>}, []\n");
    GANTRY_context_hold_changes(context);
    set(object, 11);
    sd_bus_close(GANTRY_get_sd_bus(context->bus));
    logged();
    GANTRY_context_send_changes(context, nullptr);
    EXPECT_EQ(logged(2), std::string("2 announcement.send: the changes of [") + sample +
                             "] at [/object] that waited failed, rv=-107\n");
}

TEST_F(Announcement, ChangesThatWaitPrecedeAnySignalAndTheReplyOfTheirObject)
{
    static constexpr auto signal = GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded;
    publish(create, "/second", &table);
    sent();
    table.GetString = [](GANTRY_instance* instance, char** /*out*/)
    {
        GANTRY_context_hold_changes(nullptr);
        GANTRY_property_set_int32(instance, "PropInt32", 7, false, nullptr);
        char text[] = "fault";
        signal(nullptr, text); // of /object
        GANTRY_property_set_int32(instance, "PropInt32", 8, false, nullptr);
    };
    // The client's signals are those that have arrived before the reply.
    EXPECT_TRUE(client.call({service, "/second"}, sample, "GetString").ok());
    std::string order;
    for (const auto& each : client.signals())
    {
        // The daemon may still pass on what an earlier test's connection sent.
        order += each.sender == service ? each.member + ' ' : "";
    }
    EXPECT_EQ(order, "PropertiesChanged faultAdded PropertiesChanged ");
    EXPECT_EQ(seen(), "i 8");

    // The loop ends a hold that its callback didn't.
    EXPECT_EQ(logged(2),
              "2 announcement.send_waiting_changes: changes are held while a loop runs, and "
              "are sent\n");
    set(object, 9);
    EXPECT_TRUE(client.wait_for([this] { return seen() == "i 9"; }));
    EXPECT_EQ(logged(2), "");
}

} // namespace
