// Signals out: which object one comes from, and what a host's null is sent as. Signals in: who is
// heard, and that nobody on the bus ends a host's loop by what they send, or passes for another.
#include <com/orvane/velmar/HWInventory/gantry_server.hpp>

#include "src/served.hpp"

namespace
{

interpose::Script send;

} // namespace

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    return send.for_library(__builtin_return_address(0))
        .next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

namespace
{

using HwInventory = GANTRY_com_orvane_velmar_HWInventory::HWInventory;

constexpr auto create = GANTRY_instantiate__com_orvane_velmar_HWInventory;
constexpr auto refresh = GANTRY_signal__com_orvane_velmar_HWInventory__Refresh;
constexpr auto receive_refresh = GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh;
constexpr auto fault_added = GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded;
constexpr auto complextypes = GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes;
constexpr auto receive_complextypes =
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes;

const std::string refresh_log = " gantry_server.GANTRY_signal__com_orvane_velmar_HWInventory__"
                                "Refresh: ";

constexpr auto subscribe_refresh = GANTRY_subscribe__com_orvane_velmar_HWInventory__Refresh;
constexpr const char* inventory = "com.orvane.velmar.HWInventory";

std::set<std::string> hearers; // by the data of their subscriptions

void on_heard(GANTRY_subscription* subscription, char* text, void* data)
{
    const char* sender = nullptr;
    const char* path = nullptr;
    GANTRY_signal_get_sender(subscription, &sender);
    GANTRY_signal_get_path(subscription, &path);
    hearers.insert(static_cast<const char*>(data));
    EXPECT_EQ(text, std::string(sender) + path);
}

// What a host's callbacks heard, and on which context.
std::string heard;
GANTRY_cpp_context* heard_by = nullptr;

void on_text(GANTRY_cpp_context* context, char* text)
{
    heard += std::string(text) + '\n';
    heard_by = context;
}

void on_complex(GANTRY_cpp_context* context, GANTRY_struct_quat* values, char* text)
{
    heard += values->field3 == nullptr ? "null " : "";
    on_text(context, text);
    text == std::string("throw") ? throw std::runtime_error("host's own") : 0;
}

class Signal : public Served
{
  protected:
    Signal()
    {
        heard.clear();
        receive_refresh(nullptr, on_text);
        receive_complextypes(context, on_complex);
    }

    template <class... Args>
    void emit(const char* member, const char* types = "", Args... args)
    {
        client.emit(nullptr, "/a", "com.example.Other", member, types, args...);
    }

    // What arrived since the last time.
    std::string arrived()
    {
        client.settle(service);
        return std::exchange(heard, {});
    }
};

TEST_F(Signal, ComesFromTheFirstObjectOfItsClassOrTheOneThatIsNamed)
{
    const std::string nobody = "2" + refresh_log + "cpp_inst is still nullptr\n";
    auto* other = publish(GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport, "/other");
    refresh(nullptr, "nobody");
    EXPECT_EQ(logged(2), nobody);

    auto* gone = publish(create, "/gone");
    for (int number = 1; number < 16; ++number)
    {
        publish(create, ('/' + std::to_string(number)).c_str());
    }
    GANTRY_instance_free(&gone); // one among so few is forgotten later
    sent();
    refresh(nullptr, "a");
    refresh(newest<HwInventory>().inst, "b");
    GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(nullptr);
    EXPECT_EQ(logged(2), "");
    EXPECT_EQ(sent(), "/1 Refresh s \"a\"\n/15 Refresh s \"b\"\n"
                      "/other HardwareInventoryChanged \n");

    refresh(other, "c");
    EXPECT_EQ(logged(2),
              "2" + refresh_log + "the instance is of [com.orvane.velmar.hwi.HWISupport]\n");
    // Objects of this thread are none of another's, which gets a context of its own.
    std::thread([] { refresh(nullptr, "d"); }).join();
    EXPECT_EQ(logged(2), nobody);
    // An object without its record, as a host's own subclass may be, hides the next.
    auto& first = static_cast<HwInventory*>(context->tracker[2].object)->inst;
    auto* const record = std::exchange(first, nullptr);
    refresh(nullptr, "e");
    first = record;
    EXPECT_EQ(logged(2), nobody);
    EXPECT_EQ(sent(), "");
}

TEST_F(Signal, TakesNullForEmptyAndMakesTextUtf8)
{
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, "/a", nullptr);
    fault_added(nullptr, nullptr);
    fault_added(nullptr, "\xFF");
    GANTRY_uint64_array array = {nullptr, 2};
    const GANTRY_struct_quat values = {65535, 4294967295, &array};
    complextypes(nullptr, &values, "");
    complextypes(nullptr, nullptr, "behind");
    EXPECT_EQ(sent(), "/a faultAdded s \"\"\n"
                      "/a faultAdded s \"\uFFFD\"\n"
                      "/a complextypes (quat)s (65535, 4294967295, []), \"\"\n"
                      "/a complextypes (quat)s (0, 0, []), \"behind\"\n");
}

TEST_F(Signal, ThatIsNotSentIsLogged)
{
    publish(create, "/a");
    send = {-EIO};
    refresh(nullptr, "lost");
    EXPECT_EQ(logged(2), "2 EXCEPTION" + refresh_log +
                             "sd_bus_send: org.freedesktop.DBus.Error.IOError: "
                             "Input/output error\\n\n");
    refresh(nullptr, "sent");
    EXPECT_EQ(sent(), "/a Refresh s \"sent\"\n");
}

TEST_F(Signal, IsHeardFromAnyoneOnceForEachSubscription)
{
    receive_refresh(nullptr, on_text);
    GANTRY_receive_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(
        nullptr, [](GANTRY_cpp_context*) { heard += "changed\n"; });
    publish(create, "/own");
    refresh(nullptr, "own");
    client.emit(service.c_str(), "/b", inventory, "Refresh", "s", "one");
    emit("Refreshed", "s", "another member");
    client.call({service, "/own"}, inventory, "Refresh", "s", "a call");
    emit("HardwareInventoryChanged", "s", "more");
    emit("Refresh", "si", "more", 1);
    emit("complextypes", "(quat)si", 1, 2, 0, "", 5);
    EXPECT_EQ(arrived(), "own\nown\none\none\nchanged\nmore\nmore\nnull \n");
    EXPECT_EQ(heard_by, context);
    EXPECT_EQ(logged(2), "");
}

TEST_F(Signal, IsHeardNoMoreOnceItsContextIsFreed)
{
    const auto hear = [](GANTRY_subscription*, char*, void*) { heard += "heard\n"; };
    const auto free_context = [](GANTRY_subscription*, char*, void* freed)
    {
        heard += "freed\n";
        GANTRY_context_free(static_cast<GANTRY_cpp_context**>(freed));
    };
    // One of its neighbours is called before it, and one would be called after it.
    subscribe_refresh(context, nullptr, hear, nullptr, nullptr, nullptr);
    subscribe_refresh(context, nullptr, free_context, &context, nullptr, nullptr);
    subscribe_refresh(context, nullptr, hear, nullptr, nullptr, nullptr);
    client.emit(nullptr, "/", inventory, "Refresh", "s", "text");
    client.wait_for([this] { return context == nullptr; });
    EXPECT_EQ(heard, "heard\nfreed\n");
}

TEST_F(Signal, WhoseReceiverThrowsReachesNoOther)
{
    receive_complextypes(context, on_complex);
    emit("complextypes", "(quat)s", 1, 2, 0, "throw");
    EXPECT_EQ(arrived(), "null throw\n");
    EXPECT_EQ(logged(2), "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: host's own\\n\n");
}

TEST_F(Signal, IsHeardByThoseSubscriptionsThatItMeets)
{
    constexpr const char* name = "com.example.Owner";
    support::Client other;
    const char* unique = nullptr;
    sd_bus_get_unique_name(other.bus(), &unique);
    ASSERT_GE(sd_bus_request_name(other.bus(), name, 0), 0);
    const std::pair<const char*, GANTRY_match> wanted[] = {
        {"all", {}},
        {"other", {unique, nullptr, nullptr, false}},
        {"owner", {name, nullptr, nullptr, false}},
        {"path", {nullptr, "/a", nullptr, false}},
        {"below", {nullptr, nullptr, "/a", false}},
        {"any", {nullptr, nullptr, "/", true}},
        {"bus", {"org.freedesktop.DBus", nullptr, nullptr, true}}};
    for (const auto& [data, from] : wanted)
    {
        subscribe_refresh(nullptr, &from, on_heard, const_cast<char*>(data), nullptr, nullptr);
    }
    using Hearers = std::set<std::string>;
    const auto emit_by = [&](support::Client& by, const char* path, const char* interface,
                             const char* destination = nullptr)
    {
        const char* sender = nullptr;
        sd_bus_get_unique_name(by.bus(), &sender);
        by.emit(destination, path, interface, "Refresh", "s", (std::string(sender) + path).c_str());
        by.name_owner(name); // behind the signal
        client.settle(service);
        return std::exchange(hearers, {});
    };
    client.settle(service);
    EXPECT_EQ(emit_by(client, "/a", inventory), (Hearers{"all", "any", "below", "path"}));
    EXPECT_EQ(emit_by(other, "/a/b", inventory),
              (Hearers{"all", "any", "below", "other", "owner"}));
    EXPECT_EQ(emit_by(other, "/ab", "com.example.Other"), Hearers{"any"});
    // One that goes round the bus's matches.
    EXPECT_EQ(emit_by(client, "/ab", inventory, service.c_str()), (Hearers{"all", "any"}));
    client.emit(service.c_str(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "NameOwnerChanged", "sss", name, unique, service.c_str());
    EXPECT_EQ(emit_by(other, "/", inventory), (Hearers{"all", "any", "other", "owner"}));

    sd_bus_release_name(other.bus(), name);
    EXPECT_EQ(emit_by(other, "/", inventory), (Hearers{"all", "any", "other"}));
    sd_bus_request_name(client.bus(), name, 0);
    EXPECT_EQ(emit_by(client, "/", inventory), (Hearers{"all", "any", "owner"}));
    EXPECT_EQ(logged(2), "");
}

TEST_F(Signal, IsHeardUntilItsSubscriptionEnds)
{
    static GANTRY_subscription* subscriptions[3];
    const auto end_all = [](GANTRY_subscription* own, char*, void*)
    {
        heard += "end\n";
        auto* const name = own;
        GANTRY_unsubscribe(&own);
        EXPECT_EQ(own, nullptr);
        const char* sender = "";
        GANTRY_signal_get_sender(name, &sender);
        EXPECT_EQ(sender, nullptr);
        for (auto*& each : subscriptions)
        {
            GANTRY_unsubscribe(&each); // one of them for the second time
        }
    };
    for (auto*& each : subscriptions)
    {
        subscribe_refresh(context, nullptr, end_all, nullptr, &each, nullptr);
    }
    client.emit(nullptr, "/", inventory, "Refresh", "s", "text");
    client.emit(nullptr, "/", inventory, "Refresh", "s", "text");
    EXPECT_EQ(arrived(), "end\ntext\ntext\n");
    EXPECT_EQ(subscriptions[2], nullptr);

    // One that outlives its connection, and one its context.
    const GANTRY_match from{"com.example.Owner", nullptr, nullptr, false};
    subscribe_refresh(context, &from, end_all, nullptr, &subscriptions[0], nullptr);
    subscribe_refresh(context, &from, end_all, nullptr, &subscriptions[1], nullptr);
    sd_bus_close(GANTRY_get_sd_bus(context->bus));
    GANTRY_unsubscribe(&subscriptions[0]);
    GANTRY_context_free(&context);
    GANTRY_unsubscribe(&subscriptions[1]);
    GANTRY_unsubscribe(nullptr);
    EXPECT_EQ(subscriptions[1], nullptr);
}

TEST_F(Signal, IsNotSubscribedToWithNonsense)
{
    const GANTRY_match wrong[] = {{"a'", nullptr, nullptr, false},
                                  {nullptr, "'", nullptr, false},
                                  {nullptr, nullptr, "/a/", false},
                                  {nullptr, "/a", "/", false}};
    for (const auto& from : wrong)
    {
        int error = 0;
        subscribe_refresh(nullptr, &from, on_heard, nullptr, nullptr, &error);
        EXPECT_EQ(error, EINVAL);
        EXPECT_NE(logged(2), "");
    }
}

TEST_F(Signal, OfOtherValuesIsDropped)
{
    const auto expect_dropped =
        [this](const std::string& call, const char* member, const char* types, auto... values)
    {
        emit(member, types, values...);
        // In one pass with the next, which is heard: the loop goes on.
        emit("Refresh", "s", "next");
        EXPECT_EQ(arrived(), "next\n") << types;
        EXPECT_EQ(logged(2), "2 EXCEPTION gantry_server.operator(): sd_bus_message_" + call +
                                 ": System.Error.ENXIO: No such device or address\\n\n");
    };
    expect_dropped("read_basic string", "Refresh", "i", 1);
    expect_dropped("enter_container tuple", "complextypes", "(qu)s", 1, 2, "a");
    expect_dropped("read_basic string", "complextypes", "(quat)i", 1, 2, 1, 3L, 4);
}

} // namespace
