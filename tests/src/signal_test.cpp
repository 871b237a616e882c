// Signals out: which object one comes from, and what a host's null is sent as. Signals in: who is
// heard, and that nobody on the bus ends a host's loop by what they send.
#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <gantry/gantry.h>

#include <com/orvane/velmar/HWInventory/gantry_server.hpp>

#include "src/served.hpp"
#include "src/stand_in.hpp"

namespace
{

stand_in::Script add_match;
stand_in::Script new_signal;
stand_in::Script send;
std::string rules;

} // namespace

int sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                     sd_bus_message_handler_t handler, void* userdata)
{
    auto& script = add_match.for_library(__builtin_return_address(0));
    rules += &script == &add_match ? std::string(rule) + '\n' : "";
    return script.next_or("sd_bus_add_match", sd_bus_add_match, bus, slot, rule, handler, userdata);
}

int sd_bus_message_new_signal(sd_bus* bus, sd_bus_message** message, const char* path,
                              const char* interface, const char* member)
{
    return new_signal.for_library(__builtin_return_address(0))
        .next_or("sd_bus_message_new_signal", sd_bus_message_new_signal, bus, message, path,
                 interface, member);
}

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    return send.for_library(__builtin_return_address(0))
        .next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

namespace
{

using HwInventory = GANTRY_com_orvane_velmar_HWInventory::HWInventory;

constexpr auto refresh = GANTRY_signal__com_orvane_velmar_HWInventory__Refresh;
constexpr auto complextypes = GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes;
constexpr auto fault_added = GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded;

const std::string refresh_log = " gantry_server.GANTRY_signal__com_orvane_velmar_HWInventory__"
                                "Refresh: ";

// A host's callback that says what it heard; it throws when a test wants it to.
std::string heard;
GANTRY_cpp_context* heard_by = nullptr;
const char* throws = nullptr;

void hear(GANTRY_cpp_context* context, const std::string& what)
{
    heard += what + '\n';
    heard_by = context;
    if (throws != nullptr)
    {
        throw std::runtime_error(std::exchange(throws, nullptr));
    }
}

void on_refresh(GANTRY_cpp_context* context, char* what)
{
    hear(context, "Refresh [" + std::string(what) + ']');
}

void on_changed(GANTRY_cpp_context* context)
{
    hear(context, "HardwareInventoryChanged");
}

void on_fault(GANTRY_cpp_context* context, char* fault)
{
    hear(context, "faultAdded [" + std::string(fault) + ']');
}

void on_complex(GANTRY_cpp_context* context, GANTRY_struct_quat* values, char* text)
{
    std::string array = values->field3 == nullptr ? "null" : "";
    for (unsigned long index = 0; values->field3 != nullptr && index < values->field3->count;
         ++index)
    {
        array += std::to_string(values->field3->data[index]) + ' ';
    }
    hear(context, "complextypes " + std::to_string(values->field1) + ' ' +
                      std::to_string(values->field2) + ' ' + array + '[' + text + ']');
}

class Signal : public Served
{
  protected:
    Signal()
    {
        heard.clear();
        rules.clear();
    }

    void publish(const char* path)
    {
        GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, path, nullptr);
        logged();
    }

    void subscribe()
    {
        GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
    }

    void subscribe_to_samples()
    {
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(nullptr, on_fault);
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context,
                                                                                 on_complex);
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

using SignalOut = Signal;
using SignalIn = Signal;

TEST_F(SignalOut, ComesFromTheFirstObjectOfItsClassOrTheOneThatIsNamed)
{
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(context, nullptr, "/other", nullptr);
    const std::string looked = "9" + refresh_log + "enter\n" + "9" + refresh_log +
                               "cpp_inst is nullptr, getting default\n" + "9" + refresh_log +
                               "checking tracker\n";
    logged();
    refresh(nullptr, "nobody");
    EXPECT_EQ(logged(), looked + "2" + refresh_log + "cpp_inst is still nullptr\n");

    publish("/first");
    publish("/second");
    refresh(nullptr, "a");
    EXPECT_EQ(logged(), looked + "9" + refresh_log + "checking tracker\n" + "9" + refresh_log +
                            "found instance\n");
    refresh(newest<HwInventory>().inst, "b");
    EXPECT_EQ(logged(), "9" + refresh_log + "enter\n");
    GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(nullptr);
    EXPECT_EQ(sent(), "/first Refresh s \"a\"\n/second Refresh s \"b\"\n"
                      "/other HardwareInventoryChanged \n");

    // An object without its record, as a host's own subclass may be, hides the next.
    auto& first = static_cast<HwInventory*>(context->tracker[1].object)->inst;
    auto* const record = std::exchange(first, nullptr);
    refresh(nullptr, "c");
    first = record;
    EXPECT_EQ(logged(2), "2" + refresh_log + "cpp_inst is still nullptr\n");

    // An object of another class has no such signal.
    GANTRY_instance* other = nullptr;
    GANTRY_instance_find(context, "com.orvane.velmar.hwi.HWISupport", nullptr, &other);
    refresh(other, "e");
    EXPECT_EQ(logged(2),
              "2" + refresh_log + "the instance is of [com.orvane.velmar.hwi.HWISupport]\n");

    // Objects of this thread are none of another's, which gets a context of its own.
    std::thread([] { refresh(nullptr, "d"); }).join();
    EXPECT_EQ(logged(2), "2" + refresh_log + "cpp_inst is still nullptr\n");
    EXPECT_EQ(sent(), "");
}

TEST_F(SignalOut, TakesNullForEmptyAndMakesTextUtf8)
{
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, "/a", nullptr);
    fault_added(nullptr, nullptr);
    fault_added(nullptr, "\xFF");
    unsigned long numbers[] = {0, UINT64_MAX};
    GANTRY_uint64_array array = {numbers, 2};
    const GANTRY_struct_quat values = {65535, 4294967295, &array};
    const GANTRY_struct_quat no_array = {1, 2, nullptr};
    complextypes(nullptr, &values, "text");
    complextypes(nullptr, &no_array, nullptr);
    array.data = nullptr;
    complextypes(nullptr, &values, "");
    complextypes(nullptr, nullptr, "behind");
    EXPECT_EQ(sent(),
              "/a faultAdded s \"\"\n"
              "/a faultAdded s \"\uFFFD\"\n"
              "/a complextypes (quat)s (65535, 4294967295, [0, 18446744073709551615]), \"text\"\n"
              "/a complextypes (quat)s (1, 2, []), \"\"\n"
              "/a complextypes (quat)s (65535, 4294967295, []), \"\"\n"
              "/a complextypes (quat)s (0, 0, []), \"behind\"\n");
}

TEST_F(SignalOut, ThatFailsIsLogged)
{
    publish("/a");
    for (auto* script : {&new_signal, &send})
    {
        *script = {-EIO};
        refresh(nullptr, "lost");
        EXPECT_EQ(logged(2), "2 EXCEPTION" + refresh_log +
                                 (script == &send ? "sd_bus_send" : "sd_bus_message_new_signal") +
                                 ": org.freedesktop.DBus.Error.IOError: Input/output error\\n\n");
        refresh(nullptr, "sent");
        EXPECT_EQ(sent(), "/a Refresh s \"sent\"\n");
    }
}

TEST_F(SignalIn, IsHeardFromAnyone)
{
    subscribe();
    GANTRY_receive_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(nullptr,
                                                                                      on_changed);
    subscribe_to_samples();
    EXPECT_EQ(rules, "type='signal',member='Refresh',\n"
                     "type='signal',member='HardwareInventoryChanged',\n"
                     "type='signal',member='faultAdded',\n"
                     "type='signal',member='complextypes',\n");
    EXPECT_EQ(context->signal_matches.size(), 4U);

    client.emit(service.c_str(), "/b", "com.orvane.velmar.HWInventory", "Refresh", "s", "one");
    emit("Refresh", "s", "");
    emit("HardwareInventoryChanged", "s", "more");
    emit("faultAdded", "si", "and more", 1);
    emit("complextypes", "(quat)s", 65535, 4294967295U, 2, UINT64_C(0), UINT64_MAX, "text");
    emit("complextypes", "(quat)si", 1, 2, 0, "", 5);
    emit("Refreshed", "s", "another member");
    EXPECT_EQ(arrived(), "Refresh [one]\n"
                         "Refresh []\n"
                         "HardwareInventoryChanged\n"
                         "faultAdded [and more]\n"
                         "complextypes 65535 4294967295 0 18446744073709551615 [text]\n"
                         "complextypes 1 2 null[]\n");
    EXPECT_EQ(heard_by, context);
    EXPECT_EQ(support::captured_log::count("enter lambda", "operator()"), 6U);
    EXPECT_EQ(logged(2), "");

    // Its own too, and once for each subscription.
    subscribe();
    publish("/own");
    refresh(nullptr, "own");
    EXPECT_EQ(arrived(), "Refresh [own]\nRefresh [own]\n");

    // After the context nobody is there to hear, whoever keeps the connection.
    sd_bus* const connection = sd_bus_ref(GANTRY_get_sd_bus(context->bus));
    GANTRY_context_free(&context);
    client.emit(service.c_str(), "/a", "com.example.Other", "Refresh", "s", "a");
    client.turns(3);
    while (sd_bus_process(connection, nullptr) > 0)
    {
    }
    EXPECT_EQ(heard, "");
    sd_bus_unref(connection);
}

TEST_F(SignalIn, IsHeardNoMoreOnceItsContextIsFreed)
{
    const auto free_context = [](GANTRY_cpp_context* freed, char*)
    {
        hear(freed, "freed");
        GANTRY_context_free(&freed);
    };
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, free_context);
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, free_context);
    emit("Refresh", "s", "");
    client.wait_for([] { return !heard.empty(); });
    context = nullptr;
    EXPECT_EQ(heard, "freed\n");
}

TEST_F(SignalIn, IsNotHeardWhenTheBusRefusesTheMatch)
{
    add_match = {-ENOMEM};
    subscribe();
    EXPECT_EQ(logged(2), "");
    EXPECT_EQ(context->signal_matches.size(), 1U);
    emit("Refresh", "s", "a");
    EXPECT_EQ(arrived(), "");
}

TEST_F(SignalIn, IsDroppedWhenItCannotBeRead)
{
    subscribe_to_samples();
    const auto dropped =
        [this](const char* what, const char* member, const char* types, auto... values)
    {
        logged();
        emit(member, types, values...);
        // In one pass with the next, which is heard: the loop goes on.
        emit("faultAdded", "s", "next");
        EXPECT_EQ(arrived(), "faultAdded [next]\n") << types;
        EXPECT_EQ(logged(2), "2 EXCEPTION gantry_server.operator(): sd_bus_message_" +
                                 std::string(what) +
                                 ": System.Error.ENXIO: No such device or address\\n\n");
    };
    const auto* text = "read_basic string";
    const auto* tuple = "enter_container tuple";
    dropped(text, "faultAdded", "i", 1);
    dropped(text, "faultAdded", "");
    dropped(text, "faultAdded", "(s)", "a");
    dropped(tuple, "complextypes", "");
    dropped(tuple, "complextypes", "(qu)s", 1, 2, "a");
    dropped(text, "complextypes", "(quat)", 1, 2, 1, 3L);
    dropped(text, "complextypes", "(quat)i", 1, 2, 1, 3L, 4);
}

TEST_F(SignalIn, EndsTheLoopWhenTheHostThrows)
{
    subscribe_to_samples();
    logged();
    throws = "host's own";
    emit("complextypes", "(quat)s", 1, 2, 1, 3L, "a");
    emit("complextypes", "(quat)s", 4, 5, 0, "b");
    EXPECT_EQ(arrived(), "complextypes 1 2 3 [a]\ncomplextypes 4 5 null[b]\n");
    EXPECT_EQ(logged(2), "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: host's own\\n\n");
}

} // namespace
