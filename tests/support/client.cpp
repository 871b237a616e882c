#include "support/client.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "support/render.hpp"

namespace support
{

namespace
{

constexpr const char* daemon_name = "org.freedesktop.DBus";
constexpr const char* properties_interface = "org.freedesktop.DBus.Properties";

// Each reads what is at the message's position, a text of any type or the contents of a variant.
std::string read_text(sd_bus_message* message)
{
    char type = 0;
    const char* text = nullptr;
    sd_bus_message_peek_type(message, &type, nullptr);
    check(sd_bus_message_read_basic(message, type, &text), "sd_bus_message_read_basic");
    return text;
}

void read(sd_bus_message* message, std::string& value)
{
    value = render_next(message, true);
}

template <typename Value>
void read(sd_bus_message* message, std::map<std::string, Value>& dictionary)
{
    check(sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, nullptr), "a dictionary");
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, nullptr) > 0)
    {
        read(message, dictionary[read_text(message)]);
        sd_bus_message_exit_container(message);
    }
    sd_bus_message_exit_container(message);
}

Message body(Reply reply)
{
    return reply.ok() ? std::move(reply.message) : throw std::runtime_error(reply.text);
}

int receive_reply(sd_bus_message* message, void* user, sd_bus_error* /*error*/)
{
    Reply& reply = *static_cast<Reply*>(user);
    reply.message.reset(sd_bus_message_ref(message));
    if (const sd_bus_error* const error = sd_bus_message_get_error(message))
    {
        reply.state = Reply::State::error;
        reply.error_name = error->name;
        reply.error_message = error->message == nullptr ? "" : error->message;
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
    Signal signal{.sender = sd_bus_message_get_sender(message),
                  .path = sd_bus_message_get_path(message),
                  .interface = sd_bus_message_get_interface(message),
                  .member = sd_bus_message_get_member(message),
                  .body = render(message),
                  .changed = {}};
    if (signal.member == "PropertiesChanged")
    {
        sd_bus_message_skip(message, "s");
        read(message, signal.changed);
        sd_bus_message_rewind(message, 1);
    }
    if (signal.sender != daemon_name)
    {
        static_cast<std::vector<Signal>*>(user)->push_back(std::move(signal));
    }
    return 0;
}

} // namespace

Client::Client(std::function<void()> pump) : pump_(std::move(pump))
{
    sd_bus* bus = nullptr;
    check(sd_bus_open_system(&bus), "sd_bus_open_system");
    bus_.reset(bus);
    // Answered by the daemon, which runs whatever the service does.
    static_cast<void>(unique_name());
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
        turns(1);
    }
    return true;
}

void Client::turns(int count)
{
    for (; count > 0; --count)
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
        constexpr std::uint64_t nap_us = 1'000;
        received ? 0 : sd_bus_wait(bus(), nap_us);
    }
}

void Client::settle(const std::string& service)
{
    // sd-bus answers a ping on any path, and the bus keeps the order between two connections.
    body(call({service, "/"}, "org.freedesktop.DBus.Peer", "Ping"));
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
    Properties result;
    read(body(call(object, properties_interface, "GetAll", "s", interface)).get(), result);
    return result;
}

ManagedObjects Client::managed_objects(const Object& object)
{
    ManagedObjects result;
    read(body(call(object, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")).get(),
         result);
    return result;
}

std::string Client::introspect(const Object& object)
{
    return read_text(body(call(object, "org.freedesktop.DBus.Introspectable", "Introspect")).get());
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
    check(destination == nullptr ? 0 : sd_bus_message_set_destination(message, destination),
          "sd_bus_message_set_destination");
    return Message(message);
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

std::string Client::name_owner(const char* name)
{
    const Reply reply =
        call({daemon_name, "/org/freedesktop/DBus"}, daemon_name, "GetNameOwner", "s", name);
    return reply.ok() ? read_text(reply.message.get()) : "";
}

std::string Client::unique_name() const
{
    const char* name = nullptr;
    check(sd_bus_get_unique_name(bus(), &name), "sd_bus_get_unique_name");
    return name;
}

} // namespace support
