#include "support/client.hpp"

#include <algorithm>
#include <ctime>
#include <ostream>
#include <stdexcept>
#include <utility>

#include <poll.h>

#include "support/render.hpp"

namespace support
{

namespace
{

constexpr const char* daemon_name = "org.freedesktop.DBus";
constexpr const char* properties_interface = "org.freedesktop.DBus.Properties";

std::string text_or_empty(const char* text)
{
    return text == nullptr ? "" : text;
}

// Visits each entry of the dictionary at the reading position, with its key.
template <typename Visit>
void for_each_entry(sd_bus_message* message, const std::string& contents, const Visit& visit)
{
    check(sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, contents.c_str()),
          "enter a dictionary");
    const std::string inner = contents.substr(1, contents.size() - 2);
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, inner.c_str()) > 0)
    {
        const char* key = nullptr;
        sd_bus_message_read_basic(message, inner.front(), &key);
        visit(text_or_empty(key));
        sd_bus_message_exit_container(message);
    }
    sd_bus_message_exit_container(message);
}

Properties read_properties(sd_bus_message* message)
{
    Properties result;
    for_each_entry(message, "{sv}",
                   [&](const std::string& name) { result[name] = render_next(message, true); });
    return result;
}

const Reply& require(const Reply& reply)
{
    if (!reply.ok())
    {
        throw std::runtime_error(reply.text);
    }
    return reply;
}

int receive_reply(sd_bus_message* message, void* user, sd_bus_error* /*error*/)
{
    Reply& reply = *static_cast<Reply*>(user);
    reply.message.reset(sd_bus_message_ref(message));
    if (const sd_bus_error* const error = sd_bus_message_get_error(message))
    {
        reply.state = Reply::State::error;
        reply.error_name = text_or_empty(error->name);
        reply.error_message = text_or_empty(error->message);
        reply.text = "error " + reply.error_name + ": " + reply.error_message;
    }
    else
    {
        reply.state = Reply::State::reply;
        reply.text = render(message);
    }
    return 1;
}

int receive_signal(sd_bus_message* message, void* user, sd_bus_error* /*error*/)
{
    Signal signal;
    signal.sender = text_or_empty(sd_bus_message_get_sender(message));
    if (signal.sender == daemon_name)
    {
        return 0;
    }
    signal.path = text_or_empty(sd_bus_message_get_path(message));
    signal.interface = text_or_empty(sd_bus_message_get_interface(message));
    signal.member = text_or_empty(sd_bus_message_get_member(message));
    signal.body = render(message);
    if (signal.interface == properties_interface && signal.member == "PropertiesChanged")
    {
        const char* text = nullptr;
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text);
        signal.changed_interface = text_or_empty(text);
        signal.changed = read_properties(message);
        sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s");
        while (sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text) > 0)
        {
            signal.invalidated.emplace_back(text);
        }
        sd_bus_message_rewind(message, 1);
    }
    static_cast<std::vector<Signal>*>(user)->push_back(std::move(signal));
    return 0;
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Reply& reply)
{
    return out << reply.text;
}

std::ostream& operator<<(std::ostream& out, const Signal& signal)
{
    return out << signal.path << ' ' << signal.interface << '.' << signal.member << ' '
               << signal.body;
}

Client::Client(Pump pump) : pump_(std::move(pump))
{
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "sd_bus_open_system");
    bus_.reset(bus);
    // Answered by the daemon, which runs whatever the service does.
    const char* ignored = nullptr;
    check(sd_bus_get_unique_name(bus, &ignored), "sd_bus_get_unique_name");
}

Message Client::new_call(const Object& object, const char* interface, const char* member)
{
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus(), &message, object.service.c_str(),
                                         object.path.c_str(), interface, member),
          "sd_bus_message_new_method_call");
    return Message(message);
}

Client::Pending Client::start(Message call)
{
    Pending pending;
    sd_bus_slot* slot = nullptr;
    // The deadline is this client's; sd-bus is to report what the service does alone.
    check(sd_bus_call_async(bus(), &slot, call.get(), receive_reply, pending.reply_.get(),
                            UINT64_MAX),
          "sd_bus_call_async");
    pending.slot_.reset(slot);
    return pending;
}

Reply Client::wait(Pending pending)
{
    wait_for([&] { return pending.done(); });
    return std::move(*pending.reply_);
}

bool Client::wait_for(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() >= end)
        {
            return false;
        }
        turn();
    }
    return true;
}

void Client::turns(int count)
{
    for (int i = 0; i < count; ++i)
    {
        turn();
    }
}

void Client::turn()
{
    if (pump_)
    {
        pump_();
    }
    bool received = false;
    while (check(sd_bus_process(bus(), nullptr), "sd_bus_process") > 0)
    {
        received = true;
    }
    if (received)
    {
        return;
    }
    pollfd poll_for{.fd = check(sd_bus_get_fd(bus()), "sd_bus_get_fd"), .events = 0, .revents = 0};
    poll_for.events = static_cast<short>(check(sd_bus_get_events(bus()), "sd_bus_get_events"));
    constexpr timespec nap{.tv_sec = 0, .tv_nsec = 1'000'000};
    ppoll(&poll_for, 1, &nap, nullptr);
}

void Client::settle(const std::string& service)
{
    // sd-bus answers a ping on any path, and the bus keeps the order between two connections.
    const Reply reply = call({service, "/"}, "org.freedesktop.DBus.Peer", "Ping");
    if (!reply.ok())
    {
        throw std::runtime_error("ping of " + service + ": " + reply.text);
    }
}

Reply Client::get(const Object& object, const char* interface, const char* property)
{
    Reply reply = call(object, properties_interface, "Get", "ss", interface, property);
    if (reply.ok())
    {
        reply.text = render_next(reply.message.get(), true);
        sd_bus_message_rewind(reply.message.get(), 1);
    }
    return reply;
}

Properties Client::get_all(const Object& object, const char* interface)
{
    const Reply reply = call(object, properties_interface, "GetAll", "s", interface);
    return read_properties(require(reply).message.get());
}

ManagedObjects Client::managed_objects(const Object& object)
{
    const Reply reply = call(object, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    sd_bus_message* const message = require(reply).message.get();
    ManagedObjects result;
    for_each_entry(message, "{oa{sa{sv}}}",
                   [&](const std::string& path)
                   {
                       auto& interfaces = result[path];
                       for_each_entry(message, "{sa{sv}}",
                                      [&](const std::string& interface)
                                      { interfaces[interface] = read_properties(message); });
                   });
    return result;
}

std::string Client::introspect(const Object& object)
{
    const Reply reply = call(object, "org.freedesktop.DBus.Introspectable", "Introspect");
    const char* xml = nullptr;
    check(sd_bus_message_read_basic(require(reply).message.get(), SD_BUS_TYPE_STRING, &xml),
          "sd_bus_message_read_basic");
    return xml;
}

void Client::subscribe(const std::string& rule)
{
    check(sd_bus_add_match(bus(), nullptr, rule.c_str(), receive_signal, &signals_),
          "sd_bus_add_match");
}

std::vector<Signal> Client::signals(std::string_view member) const
{
    std::vector<Signal> result;
    std::ranges::copy_if(signals_, std::back_inserter(result),
                         [&](const Signal& signal) { return signal.member == member; });
    return result;
}

Message Client::new_signal(const char* destination, const char* path, const char* interface,
                           const char* member)
{
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(bus(), &message, path, interface, member),
          "sd_bus_message_new_signal");
    Message result(message);
    check(destination == nullptr ? 0 : sd_bus_message_set_destination(message, destination),
          "sd_bus_message_set_destination");
    return result;
}

void Client::send(Message message)
{
    check(sd_bus_send(bus(), message.get(), nullptr), "sd_bus_send");
    check(sd_bus_flush(bus()), "sd_bus_flush");
}

void Client::request_name(const char* name)
{
    check(sd_bus_request_name(bus(), name, 0), "sd_bus_request_name");
}

bool Client::name_has_owner(const char* name)
{
    return !name_owner(name).empty();
}

std::string Client::name_owner(const char* name)
{
    const Reply reply =
        call({daemon_name, "/org/freedesktop/DBus"}, daemon_name, "GetNameOwner", "s", name);
    const char* owner = "";
    if (reply.ok())
    {
        check(sd_bus_message_read_basic(reply.message.get(), SD_BUS_TYPE_STRING, &owner),
              "sd_bus_message_read_basic");
    }
    return owner;
}

std::string Client::unique_name() const
{
    const char* name = nullptr;
    check(sd_bus_get_unique_name(bus(), &name), "sd_bus_get_unique_name");
    return name;
}

} // namespace support
