// Signals out: which object one comes from, and what a host's null is sent as. Signals in: who is
// heard, and that nobody on the bus ends a host's loop by what they send.
#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/HWInventory/gantry_server.hpp>
#include <gantry/context.hpp>

#include "src/logged.hpp"
#include "src/stand_in.hpp"
#include "support/client.hpp"

namespace
{

using support::Client;
using testing::ElementsAre;

stand_in::Script add_match;
stand_in::Script new_signal;
stand_in::Script send;
std::vector<std::string> rules;

// libsystemd and the client call the same functions: a script is for the library.
stand_in::Script& scripted(stand_in::Script& script, const void* caller)
{
    static stand_in::Script none;
    return stand_in::is_called_by_library(caller) ? script : none;
}

} // namespace

int sd_bus_add_match(sd_bus* bus, sd_bus_slot** slot, const char* rule,
                     sd_bus_message_handler_t handler, void* userdata)
{
    auto& script = scripted(add_match, __builtin_return_address(0));
    if (&script == &add_match)
    {
        rules.emplace_back(rule);
    }
    return script.next_or("sd_bus_add_match", sd_bus_add_match, bus, slot, rule, handler, userdata);
}

int sd_bus_message_new_signal(sd_bus* bus, sd_bus_message** message, const char* path,
                              const char* interface, const char* member)
{
    return scripted(new_signal, __builtin_return_address(0))
        .next_or("sd_bus_message_new_signal", sd_bus_message_new_signal, bus, message, path,
                 interface, member);
}

int sd_bus_send(sd_bus* bus, sd_bus_message* message, uint64_t* cookie)
{
    return scripted(send, __builtin_return_address(0))
        .next_or("sd_bus_send", sd_bus_send, bus, message, cookie);
}

namespace
{

constexpr auto refresh = GANTRY_signal__com_orvane_velmar_HWInventory__Refresh;
constexpr auto changed = GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged;
constexpr auto fault_added = GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded;
constexpr auto complextypes = GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes;

const std::string refresh_log = " gantry_server.GANTRY_signal__com_orvane_velmar_HWInventory__"
                                "Refresh: ";
const std::string loop_log = "2 EXCEPTION gantrycommon.GANTRY_dbus_loop_one_pass: ";

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

std::string shown(const char* text)
{
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

void on_refresh(GANTRY_cpp_context* context, char* what)
{
    hear(context, "Refresh " + shown(what));
}

void on_changed(GANTRY_cpp_context* context)
{
    hear(context, "HardwareInventoryChanged");
}

void on_fault(GANTRY_cpp_context* context, char* fault)
{
    hear(context, "faultAdded " + shown(fault));
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
                      std::to_string(values->field2) + ' ' + array + ' ' + shown(text));
}

class Signal : public testing::Test
{
  protected:
    Signal()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        service = context->bus.get_unique_name();
        client.subscribe();
        heard.clear();
        rules.clear();
    }
    ~Signal() override
    {
        GANTRY_context_free(&context);
    }

    // What went out since the last time.
    std::string sent()
    {
        client.settle(service);
        std::string all;
        for (const auto& signal : client.signals())
        {
            if (signal.interface.starts_with("com.orvane."))
            {
                all += signal.path + ' ' + signal.member + ' ' + signal.body + '\n';
            }
        }
        client.clear_signals();
        return all;
    }

    // What arrived since the last time.
    std::string arrived()
    {
        client.settle(service);
        return std::exchange(heard, {});
    }

    GANTRY_cpp_context* context = nullptr;
    std::string service;
    Client client{[this]
                  {
                      if (context != nullptr)
                      {
                          GANTRY_dbus_loop_one_pass(context);
                      }
                  }};
};

using SignalOut = Signal;
using SignalIn = Signal;

TEST_F(SignalOut, ComesFromTheFirstObjectOfItsClassOrTheOneThatIsNamed)
{
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(context, nullptr, "/other", nullptr);
    GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/first", nullptr);
    GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/second", nullptr);
    logged();

    refresh(nullptr, "a");
    EXPECT_EQ(logged(), "9" + refresh_log + "enter\n" + "9" + refresh_log +
                            "cpp_inst is nullptr, getting default\n" + "9" + refresh_log +
                            "checking tracker\n" + "9" + refresh_log + "checking tracker\n" + "9" +
                            refresh_log + "found instance\n");
    using Class = GANTRY_com_orvane_velmar_HWInventory::HWInventory;
    auto* const second = static_cast<Class*>(context->tracker.back().object)->inst;
    refresh(second, "b");
    EXPECT_EQ(logged(), "9" + refresh_log + "enter\n");
    changed(nullptr);
    EXPECT_EQ(sent(), "/first Refresh s \"a\"\n/second Refresh s \"b\"\n"
                      "/other HardwareInventoryChanged \n");

    // An object without its record, as a host's own subclass may be, hides the next.
    auto& first = static_cast<Class*>(context->tracker[1].object)->inst;
    auto* const record = std::exchange(first, nullptr);
    refresh(nullptr, "c");
    first = record;
    EXPECT_EQ(logged(2), "2" + refresh_log + "cpp_inst is still nullptr\n");
    EXPECT_EQ(sent(), "");
}

TEST_F(SignalOut, IsNotSentWithoutAnObject)
{
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(context, nullptr, "/other", nullptr);
    logged();
    refresh(nullptr, "a");
    EXPECT_EQ(logged(), "9" + refresh_log + "enter\n" + "9" + refresh_log +
                            "cpp_inst is nullptr, getting default\n" + "9" + refresh_log +
                            "checking tracker\n" + "2" + refresh_log +
                            "cpp_inst is still nullptr\n");

    // Objects of this thread are none of another's, which gets a context of its own.
    GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/first", nullptr);
    logged();
    std::thread([] { refresh(nullptr, "a"); }).join();
    EXPECT_EQ(logged(2), "2" + refresh_log + "cpp_inst is still nullptr\n");
    EXPECT_EQ(sent(), "");
}

TEST_F(SignalOut, TakesNullForEmptyAndMakesTextUtf8)
{
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, "/a", nullptr);
    fault_added(nullptr, nullptr);
    fault_added(nullptr, "\xFF");
    EXPECT_EQ(sent(), "/a faultAdded s \"\"\n/a faultAdded s \"\xEF\xBF\xBD\"\n");

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
              "/a complextypes (quat)s (65535, 4294967295, [0, 18446744073709551615]), \"text\"\n"
              "/a complextypes (quat)s (1, 2, []), \"\"\n"
              "/a complextypes (quat)s (65535, 4294967295, []), \"\"\n"
              "/a complextypes (quat)s (0, 0, []), \"behind\"\n");
}

TEST_F(SignalOut, ThatFailsIsLogged)
{
    GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/a", nullptr);
    const struct
    {
        stand_in::Script& script;
        std::string what;
    } failures[] = {{new_signal, "sd_bus_message_new_signal"}, {send, "sd_bus_send"}};
    for (const auto& [script, what] : failures)
    {
        logged();
        script = {-EIO};
        refresh(nullptr, "lost");
        EXPECT_EQ(logged(2), "2 EXCEPTION" + refresh_log + what +
                                 ": org.freedesktop.DBus.Error.IOError: Input/output error\\n\n");
        refresh(nullptr, "sent");
        EXPECT_EQ(sent(), "/a Refresh s \"sent\"\n");
    }
}

TEST_F(SignalIn, HearsItsMemberFromAnyone)
{
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
    EXPECT_EQ(logged(2), "");
    GANTRY_receive_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(nullptr,
                                                                                      on_changed);
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(context, on_fault);
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context, on_complex);
    EXPECT_THAT(rules, ElementsAre("type='signal',member='Refresh',",
                                   "type='signal',member='HardwareInventoryChanged',",
                                   "type='signal',member='faultAdded',",
                                   "type='signal',member='complextypes',"));
    EXPECT_EQ(context->signal_matches.size(), 4U);

    client.emit(nullptr, "/a", "com.orvane.velmar.HWInventory", "Refresh", "s", "one");
    client.emit(nullptr, "/b", "com.example.Other", "Refresh", "s", "");
    client.emit(service.c_str(), "/b", "com.example.Other", "HardwareInventoryChanged");
    client.emit(nullptr, "/b", "com.example.Other", "HardwareInventoryChanged", "s", "more");
    client.emit(nullptr, "/b", "com.example.Other", "faultAdded", "si", "and more", 1);
    client.emit(nullptr, "/b", "com.example.Other", "complextypes", "(quat)s", 65535, 4294967295U,
                2, UINT64_C(0), UINT64_MAX, "text");
    client.emit(nullptr, "/b", "com.example.Other", "complextypes", "(quat)si", 1, 2, 0, "", 5);
    client.emit(nullptr, "/b", "com.example.Other", "Refreshed", "s", "another member");
    EXPECT_EQ(arrived(), "Refresh \"one\"\n"
                         "Refresh \"\"\n"
                         "HardwareInventoryChanged\n"
                         "HardwareInventoryChanged\n"
                         "faultAdded \"and more\"\n"
                         "complextypes 65535 4294967295 0 18446744073709551615  \"text\"\n"
                         "complextypes 1 2 null \"\"\n");
    EXPECT_EQ(heard_by, context);
    EXPECT_EQ(support::captured_log::count("enter lambda", "operator()"), 7U);
    EXPECT_EQ(logged(2), "");

    // Its own too.
    GANTRY_instantiate__com_orvane_velmar_HWInventory(context, nullptr, "/own", nullptr);
    refresh(nullptr, "own");
    EXPECT_EQ(arrived(), "Refresh \"own\"\n");
}

TEST_F(SignalIn, IsHeardOncePerSubscription)
{
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
    client.emit(nullptr, "/a", "com.example.Other", "Refresh", "s", "a");
    EXPECT_EQ(arrived(), "Refresh \"a\"\nRefresh \"a\"\n");

    // One that the bus refuses is kept and hears nothing.
    GANTRY_context_free(&context);
    GANTRY_context_new(&context);
    service = context->bus.get_unique_name();
    logged();
    add_match = {-ENOMEM};
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
    EXPECT_EQ(logged(2), "");
    EXPECT_EQ(context->signal_matches.size(), 1U);
    client.emit(nullptr, "/a", "com.example.Other", "Refresh", "s", "a");
    EXPECT_EQ(arrived(), "");

    // And after the context nobody is there to hear, whoever keeps the connection.
    GANTRY_receive_signal__com_orvane_velmar_HWInventory__Refresh(context, on_refresh);
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

TEST_F(SignalIn, IsDroppedWhenItCannotBeRead)
{
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(context, on_fault);
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context, on_complex);
    const auto emit = [this](const char* member, const char* types, auto... values)
    {
        logged();
        client.emit(nullptr, "/a", "com.example.Other", member, types, values...);
        // In one pass with the next, which is heard: the loop goes on.
        client.emit(nullptr, "/a", "com.example.Other", "faultAdded", "s", "next");
        EXPECT_EQ(arrived(), "faultAdded \"next\"\n") << types;
        return logged(2);
    };
    const auto read = [](const char* what, const char* error) {
        return "2 EXCEPTION gantry_server.operator(): " + std::string(what) + ": " + error +
               "\\n\n";
    };
    const auto* wrong = "System.Error.ENXIO: No such device or address";
    const auto* text = "sd_bus_message_read_basic string";
    const auto* tuple = "sd_bus_message_enter_container tuple";
    EXPECT_EQ(emit("faultAdded", "i", 1), read(text, wrong));
    EXPECT_EQ(emit("faultAdded", ""), read(text, wrong));
    EXPECT_EQ(emit("faultAdded", "(s)", "a"), read(text, wrong));
    EXPECT_EQ(emit("complextypes", ""), read(tuple, wrong));
    EXPECT_EQ(emit("complextypes", "(qu)s", 1, 2, "a"), read(tuple, wrong));
    EXPECT_EQ(emit("complextypes", "(quat)", 1, 2, 1, 3L), read(text, wrong));
    EXPECT_EQ(emit("complextypes", "(quat)i", 1, 2, 1, 3L, 4), read(text, wrong));
}

TEST_F(SignalIn, EndsTheLoopWhenTheHostThrows)
{
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context, on_complex);
    logged();
    throws = "host's own";
    client.emit(nullptr, "/a", "com.example.Other", "complextypes", "(quat)s", 1, 2, 1, 3L, "a");
    client.emit(nullptr, "/a", "com.example.Other", "complextypes", "(quat)s", 4, 5, 0, "b");
    EXPECT_EQ(arrived(), "complextypes 1 2 3  \"a\"\ncomplextypes 4 5 null \"b\"\n");
    EXPECT_EQ(logged(2), loop_log + "host's own\\n\n");
}

} // namespace
