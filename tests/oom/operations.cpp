#include "oom/operations.hpp"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <poll.h>

#include <gantry/gantry.h>
#include <tallybook_inspect.hpp>

#include <gantry/context.hpp>

#include "support/client.hpp"
#include "support/memory.hpp"

namespace
{

using Context = GANTRY_cpp_context;

constexpr const char* sample = "com.orvane.velmar.sample.gantrytest";
constexpr const char* bios = "com.orvane.velmar.system.BiosSoftwareInventory";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* manager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* introspectable = "org.freedesktop.DBus.Introspectable";
constexpr const char* name = "com.example.Oom";
const char* texts[] = {"a text that is longer than any small buffer", "another long text"};
constexpr const char* members[] = {"InstallationDate", "VersionDependencyArray", "FQDD", nullptr};
constexpr const char* misnamed[] = {"FQDD", "NoSuch", nullptr};
constexpr auto publish = GANTRY_instantiate__com_orvane_velmar_sample_gantrytest;
constexpr auto publish_bios = GANTRY_instantiate__com_orvane_velmar_system_BiosSoftwareInventory;
constexpr auto publish_hwi = GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport;
constexpr auto publish_inventory = GANTRY_instantiate__com_orvane_velmar_HWInventory;
constexpr auto refresh = GANTRY_signal__com_orvane_velmar_HWInventory__Refresh;
constexpr auto change = GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged;
constexpr auto add_fault = GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded;
constexpr auto send = GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes;

std::unique_ptr<support::Client> client;
std::string service;
Context* context = nullptr;
GANTRY_instance* object = nullptr; // at /b
support::Client::Pending pending;

// What an operation gives the host.
int error = 0;
unsigned long number = 0;
char* text = nullptr;
GANTRY_string_array* strings = nullptr;
GANTRY_instance* instance = nullptr;
GANTRY_subscription* subscription = nullptr;
GANTRY_call* open_call = nullptr;
std::multiset<std::string> heard;

// What the host itself does has memory: how it does without is no matter of the library's.
const auto uncounted = [](const auto& call) { memory::count_in(call, false); };
const auto hear = [](const char* what) { uncounted([&] { heard.insert(what); }); };
const auto bus = [] { return GANTRY_get_sd_bus(context->bus); };
const auto one_pass = [] { GANTRY_dbus_loop_one_pass(context); };

// Empty once the connection is lost.
std::string unique_name()
{
    const char* unique = nullptr;
    return sd_bus_get_unique_name(bus(), &unique) < 0 ? "" : unique;
}

bool is_ready()
{
    return context != nullptr && sd_bus_is_ready(bus()) > 0;
}

void give_texts(GANTRY_instance* /*called*/, GANTRY_string_array* in, GANTRY_string_array** out)
{
    hear(in->data[1]);
    uncounted([&] { GANTRY_property_get_strings(object, members[1], out, nullptr); });
}

void make_host()
{
    static GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    table.Try_string = table.Try_string_D = [](GANTRY_instance*, char* in, char** out)
    { uncounted([&] { *out = strdup(in); }); };
    table.GetString = [](GANTRY_instance* called, char** /*out*/)
    { uncounted([&] { GANTRY_call_defer(called, &open_call, nullptr); }); };
    table.TryArrayString = table.TryArrayStringD = give_texts;
    table.TryStructArray = table.TryStructArrayD =
        [](GANTRY_instance* called, GANTRY_struct_ananas* in, GANTRY_struct_ananas** out)
    {
        uncounted([&] { *out = new (malloc(sizeof **out)) GANTRY_struct_ananas{}; });
        give_texts(called, in->field3, &(*out)->field3);
    };
    GANTRY_context_free(&context);
    GANTRY_use_default = true;
    GANTRY_context_new(&context);
    GANTRY_context_set_service(context, "");
    publish_hwi(context, nullptr, "/", nullptr); // its object manager is for all
    publish(context, &table, "/a", nullptr);
    publish_bios(context, nullptr, "/b", nullptr);
    publish_inventory(context, nullptr, "/c", nullptr);
    GANTRY_instance_find(context, bios, "/b", &object);
    service = unique_name();
    // A loop that is short of memory ends behind its first message.
    const auto stop = [](sd_event_source*, void*)
    { return memory::counts ? GANTRY_context_stop(nullptr), 0 : 0; };
    sd_event_add_post(context->event.get(), nullptr, stop, nullptr);
}

void set(int which, int value, bool skip)
{
    char* data[] = {const_cast<char*>(texts[value]), const_cast<char*>(texts[0])};
    const GANTRY_string_array array{data, 2};
    which == 0   ? GANTRY_property_set_uint64(object, members[0], value != 0, skip, &error)
    : which == 1 ? GANTRY_property_set_strings(object, members[1], &array, skip, &error)
                 : GANTRY_property_set_string(object, members[2], texts[value], skip, &error);
}

// Makes the host what it is before any operation.
void reset()
{
    object == nullptr || !is_ready() ? make_host() : void();
    sd_bus_release_name(bus(), name);
    context->signal_matches.clear();
    GANTRY_unsubscribe(&subscription);
    GANTRY_call_refuse(&open_call, "com.example.Gone", "", nullptr);
    GANTRY_instance_on_read(object, nullptr, nullptr);
    for (const char* interface : {sample, "com.orvane.velmar.hwi.HWISupport"})
    {
        GANTRY_instance_find(context, interface, "/new", &instance);
        GANTRY_instance_free(&instance);
    }
    set(0, 0, true), set(1, 0, true), set(2, 0, true);
    client->set({service, "/a"}, sample, "PropUInt64", "t", 0L);
    client->set({service, "/a"}, sample, "PropDict1", "a{qs}", 0);
    client->settle(service);
    client->signals().clear();
    pending.reset();
    heard.clear();
    error = 0;
}

// All that a client sees of the host, and what an operation gave.
std::multiset<std::string> look()
{
    std::multiset<std::string> seen;
    const auto see = [&seen](const std::string& what) { seen.insert(what); };
    see(std::to_string(std::exchange(number, 0)));
    see(text == nullptr ? "" : text);
    free(std::exchange(text, nullptr));
    see(strings == nullptr ? "" : strings->data[0]);
    GANTRY_strings_free(&strings);
    service = context == nullptr ? service : unique_name();
    see(client->name_owner(service.c_str()).empty() ? "" : "connected");
    see(client->name_owner(name).empty() ? "" : "named");
    object = nullptr;
    if (!is_ready() || sd_bus_get_event(bus()) == nullptr)
    {
        return seen;
    }
    client->emit(nullptr, "/", "a.b", "faultAdded", "s", "heard");
    client->settle(service);
    seen.merge(heard);
    see(pending != nullptr && pending->message != nullptr ? pending->text : "");
    for (const support::Signal& signal : client->signals())
    {
        see(signal.sender == service ? signal.path + ' ' + signal.member + ' ' + signal.body : "");
    }
    client->signals().clear();
    GANTRY_instance_find(context, bios, "/b", &object);
    see(client->call({service, "/new"}, manager, "GetManagedObjects").ok() ? "managed" : "");
    const std::string all = client->call({service, "/"}, manager, "GetManagedObjects").text;
    for (std::size_t at = 0, next = 0; object != nullptr && next != std::string::npos;
         at = next + 1)
    {
        next = all.find(", \"", at);
        see(all.substr(at, next - at));
    }
    return seen;
}

void await_message()
{
    pollfd end{sd_bus_get_fd(bus()), POLLIN, 0};
    poll(&end, 1, 10'000);
}

template <class... Args>
auto call(const char* path, const char* interface, const std::string& member,
          const char* types = "", Args... args)
{
    return [=]
    {
        pending = client->start({service, path}, interface, member.c_str(), types, args...);
        await_message();
    };
}

void subscribe()
{
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__faultAdded(
        context, [](Context*, char* given) { hear(given); });
}

void hold_change()
{
    GANTRY_context_hold_changes(context);
    set(0, 1, false);
    const int first = std::exchange(error, 0);
    GANTRY_context_send_changes(context, &error);
    error = error != 0 ? error : first;
}

void set_bytes()
{
    const GANTRY_byte_array bytes = {reinterpret_cast<unsigned char*>(const_cast<char*>(texts[0])),
                                     30};
    GANTRY_property_set_bytes(instance, "PropArray1", &bytes, false, &error);
}

// A value that is worked out when a client reads it.
void work_out()
{
    const auto work_it_out = [](GANTRY_instance* /*read*/, void*) { set(0, 1, true); };
    GANTRY_instance_on_read(object, work_it_out, nullptr);
}

void defer()
{
    call("/a", sample, "GetString")();
    one_pass();
}

void listen()
{
    GANTRY_call_on_cancel(
        open_call, [](GANTRY_call*, void*) { hear("left"); }, nullptr, &error);
}

// The client has the name.
void subscribe_to_sender()
{
    const GANTRY_match from{"com.example.Sender", nullptr, nullptr, true};
    GANTRY_subscribe__com_orvane_velmar_sample_gantrytest__faultAdded(
        context, &from, [](GANTRY_subscription*, char* given, void*) { hear(given); }, nullptr,
        &subscription, &error);
}

void subscribe_to_all()
{
    subscribe();
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(
        context, [](Context*, GANTRY_struct_quat*, char* given) { hear(given); });
}

template <class... Args>
auto arrival(const char* member, const char* types, Args... args)
{
    return [=]
    {
        subscribe_to_all();
        client->settle(service);
        client->emit(nullptr, "/", "a.b", member, types, args...);
        await_message();
    };
}

} // namespace

void begin()
{
    const auto pump = []
    {
        pollfd ends[] = {{context == nullptr ? -1 : sd_bus_get_fd(bus()), POLLIN, 0},
                         {sd_bus_get_fd(client->bus()), POLLIN, 0}};
        const bool is_due = poll(ends, 2, 1) == 0 || ends[0].revents != 0;
        context != nullptr&& is_due ? one_pass() : void();
    };
    client = std::make_unique<support::Client>(pump);
    client->subscribe();
    sd_bus_request_name(client->bus(), "com.example.Sender", 0);
}

void end()
{
    GANTRY_context_free(&context);
    object = nullptr;
    pending.reset();
    client.reset();
    Tallybook::clear();
}

Seen run(const Operation& operation)
{
    reset();
    Seen seen;
    seen.before = look();
    operation.prepare();
    memory::count_in(operation.act);
    seen.after = look();
    seen.error = context == nullptr ? -1 : error;
    seen.is_lost = context != nullptr && !is_ready();
    return seen;
}

std::vector<Operation> operations()
{
    static unsigned long numbers[] = {1, 2};
    static GANTRY_uint64_array array = {numbers, 2};
    static const GANTRY_struct_quat values = {1, 2, &array};
    const auto make = [] { GANTRY_context_new(&context); };
    const auto free_it = [] { GANTRY_context_free(&context); };
    const auto get_path = [] { GANTRY_instance_get_path(object, &text), error = text ? 0 : -1; };
    const auto publish_new = [] { publish(context, nullptr, "/new", nullptr); };
    const auto find_new = [] { GANTRY_instance_find(context, sample, "/new", &instance); };
    std::vector<Operation> all = {
        {"context new", make, free_it},
        {"context new, private", make, [=] { free_it(), GANTRY_use_default = false; }},
        {"context free", free_it, subscribe},
        {"context set_service", [] { GANTRY_context_set_service(context, name); }},
        {"context get_fd", [] { GANTRY_context_get_fd(context, &error); }},
        {"context stop", [] { GANTRY_context_stop(context); }},
        {"instantiate", [] { publish_hwi(context, nullptr, "/new", nullptr); }},
        {"instantiate, many properties", publish_new},
        {"instance find", [] { GANTRY_instance_find(context, sample, "/a", &instance); }},
        {"instance get_path", get_path},
        {"instance announce_added", [] { GANTRY_instance_announce_added(object, &error); }},
        {"instance free", [] { GANTRY_instance_free(&instance); },
         [=] { publish_new(), find_new(); }},
        {"get number", [] { GANTRY_property_get_uint64(object, members[0], &number, &error); }},
        {"get strings", [] { GANTRY_property_get_strings(object, members[1], &strings, &error); }},
        {"get string", [] { GANTRY_property_get_string(object, members[2], &text, &error); }},
        {"set number", [] { set(0, 1, false); }},
        {"set strings", [] { set(1, 1, false); }},
        {"set string", [] { set(2, 1, false); }},
        {"set bytes", set_bytes, [=] { publish_new(), find_new(); }},
        {"change held", hold_change},
        {"announce", [] { GANTRY_property_announce(object, members, &error); }},
        {"announce, refused name", [] { GANTRY_property_announce(object, misnamed, &error); }},
        {"signal Refresh", [] { refresh(nullptr, texts[0]); }},
        {"signal HardwareInventoryChanged", [] { change(nullptr); }},
        {"signal faultAdded", [] { add_fault(nullptr, texts[0]); }},
        {"signal complextypes", [] { send(nullptr, &values, texts[0]); }},
        {"signal subscription", subscribe, [] {}, "crash"},
        {"signal subscription to a sender", subscribe_to_sender, [] {}, "crash"},
        {"signal unsubscribe", [] { GANTRY_unsubscribe(&subscription); }, subscribe_to_sender},
        {"signal arrival", one_pass, arrival("faultAdded", "s", texts[0])},
        {"signal arrival, structure", one_pass,
         arrival("complextypes", "(quat)s", 1, 2, 2, 3L, 4L, texts[0])},
        {"Get number", one_pass, call("/b", properties, "Get", "ss", bios, members[0]), "silent"},
        {"Get number that is worked out", one_pass,
         [] { work_out(), call("/b", properties, "Get", "ss", bios, members[0])(); }, "silent"},
        {"call on_cancel", listen, defer, "crash"},
        {"Get strings", one_pass, call("/b", properties, "Get", "ss", bios, members[1]), "silent"},
        {"Get string", one_pass, call("/b", properties, "Get", "ss", bios, members[2]), "silent"},
        {"GetAll", one_pass, call("/b", properties, "GetAll", "s", bios), "silent"},
        {"Set number", one_pass,
         call("/a", properties, "Set", "ssv", sample, "PropUInt64", "t", 1L), "silent"},
        {"Set dictionary", one_pass,
         call("/a", properties, "Set", "ssv", sample, "PropDict1", "a{qs}", 1, 2, texts[0]),
         "silent"},
        {"GetManagedObjects", one_pass, call("/", manager, "GetManagedObjects"), "silent"},
        {"Introspect", one_pass, call("/a", introspectable, "Introspect"), "silent wrong"},
    };
    const std::pair<std::string, void (*)(Context*)> loops[] = {
        {"dbus_loop ", GANTRY_dbus_loop},
        {"one_pass ", GANTRY_dbus_loop_one_pass},
        {"sdloop ", GANTRY_dbus_sdloop}};
    for (const auto& [prefix, loop] : loops)
    {
        const auto add = [&, first = prefix, act = loop](const char* member, auto... body)
        {
            all.push_back({first + member, [act] { act(context); },
                           call("/a", sample, member, body...), "silent"});
        };
        add("Try_string", "s", texts[0]);
        add("Try_string_D", "s", texts[0]);
        add("TryArrayString", "as", 2, "", texts[0]);
        add("TryArrayStringD", "as", 2, "", texts[0]);
        add("TryStructArray", "(ananas)", 0, 0, 2, "", texts[0]);
        add("TryStructArrayD", "(ananas)", 0, 0, 2, "", texts[0]);
    }
    return all;
}
