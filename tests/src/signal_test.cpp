// Signals out: which object one comes from, and what a host's null is sent as. Signals in: who is
// heard, and that nobody on the bus ends a host's loop by what they send.
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

    publish(create, "/first");
    publish(create, "/second");
    refresh(nullptr, "a");
    refresh(newest<HwInventory>().inst, "b");
    GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(nullptr);
    EXPECT_EQ(logged(2), "");
    EXPECT_EQ(sent(), "/first Refresh s \"a\"\n/second Refresh s \"b\"\n"
                      "/other HardwareInventoryChanged \n");

    refresh(other, "c");
    EXPECT_EQ(logged(2),
              "2" + refresh_log + "the instance is of [com.orvane.velmar.hwi.HWISupport]\n");
    // Objects of this thread are none of another's, which gets a context of its own.
    std::thread([] { refresh(nullptr, "d"); }).join();
    EXPECT_EQ(logged(2), nobody);
    // An object without its record, as a host's own subclass may be, hides the next.
    auto& first = static_cast<HwInventory*>(context->tracker[1].object)->inst;
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
    client.emit(service.c_str(), "/b", "com.orvane.velmar.HWInventory", "Refresh", "s", "one");
    emit("Refreshed", "s", "another member");
    client.call({service, "/own"}, "com.orvane.velmar.HWInventory", "Refresh", "s", "a call");
    emit("HardwareInventoryChanged", "s", "more");
    emit("Refresh", "si", "more", 1);
    emit("complextypes", "(quat)si", 1, 2, 0, "", 5);
    EXPECT_EQ(arrived(), "own\nown\none\none\nchanged\nmore\nmore\nnull \n");
    EXPECT_EQ(heard_by, context);
    EXPECT_EQ(logged(2), "");
}

TEST_F(Signal, IsHeardNoMoreOnceItsContextIsFreed)
{
    const auto free_context = [](GANTRY_cpp_context* freed, char*)
    {
        heard += "freed\n";
        GANTRY_context_free(&freed);
    };
    receive_refresh(context, free_context); // heard before the other subscription
    emit("Refresh", "s", "text");
    client.wait_for([] { return !heard.empty(); });
    context = nullptr;
    EXPECT_EQ(heard, "freed\n");
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

TEST_F(Signal, EndsTheLoopWhenTheHostThrows)
{
    emit("complextypes", "(quat)s", 1, 2, 1, 3L, "throw");
    emit("Refresh", "s", "next");
    EXPECT_EQ(arrived(), "throw\nnext\n");
    EXPECT_EQ(logged(2), "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: host's own\\n\n");
}

} // namespace
