#include "support/client.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>

namespace support
{

namespace
{

constexpr const char* daemon_name = "org.freedesktop.DBus";

// Bodies as one line of text: the signature, a space, and the values separated by ", ". An array is
// [1, 2], a dictionary {"a": 1}, a structure (1, "a"), a variant <s "text">; without a value "".
std::string render_next(sd_bus_message* message);

template <typename T>
T read(sd_bus_message* message, char type)
{
    T value{};
    check(sd_bus_message_read_basic(message, type, &value));
    return value;
}

template <typename T>
std::string number(sd_bus_message* message, char type)
{
    std::array<char, 32> digits{};
    return {digits.data(), std::to_chars(digits.begin(), digits.end(), read<T>(message, type)).ptr};
}

std::string basic(sd_bus_message* message, char type)
{
    static const std::map<char, std::string (*)(sd_bus_message*, char)> numbers{
        {'y', number<std::uint8_t>}, {'n', number<std::int16_t>},  {'q', number<std::uint16_t>},
        {'i', number<std::int32_t>}, {'u', number<std::uint32_t>}, {'x', number<std::int64_t>},
        {'d', number<double>},       {'t', number<std::uint64_t>},
    };
    if (const auto found = numbers.find(type); found != numbers.end())
    {
        return found->second(message, type);
    }
    if (type == SD_BUS_TYPE_BOOLEAN)
    {
        return read<int>(message, type) == 0 ? "false" : "true";
    }
    std::ostringstream text;
    text << std::quoted(read<const char*>(message, type));
    return text.str();
}

// The values up to the end of the container that is entered, or of the body.
std::string sequence(sd_bus_message* message, std::string_view separator = ", ")
{
    std::string result;
    for (std::string_view before; check(sd_bus_message_at_end(message, 0)) == 0; before = separator)
    {
        result.append(before).append(render_next(message));
    }
    return result;
}

std::string render_next(sd_bus_message* message)
{
    char type = 0;
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(message, &type, &contents));
    if (contents == nullptr)
    {
        return basic(message, type);
    }
    check(sd_bus_message_enter_container(message, type, contents));
    std::string result = type == SD_BUS_TYPE_VARIANT ? std::string(contents) + ' ' : "";
    result += sequence(message, type == SD_BUS_TYPE_DICT_ENTRY ? ": " : ", ");
    check(sd_bus_message_exit_container(message));
    switch (type)
    {
    case SD_BUS_TYPE_ARRAY:
        return *contents == SD_BUS_TYPE_DICT_ENTRY_BEGIN ? '{' + result + '}' : '[' + result + ']';
    case SD_BUS_TYPE_STRUCT:
        return '(' + result + ')';
    case SD_BUS_TYPE_VARIANT:
        return '<' + result + '>';
    default:
        return result;
    }
}

std::string render(sd_bus_message* message)
{
    check(sd_bus_message_rewind(message, 1));
    const std::string signature = sd_bus_message_get_signature(message, 1);
    const std::string result = signature.empty() ? "" : signature + ' ' + sequence(message);
    check(sd_bus_message_rewind(message, 1));
    return result;
}

Properties read_properties(sd_bus_message* message)
{
    Properties properties;
    check(sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}"));
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0)
    {
        const std::string name = read<const char*>(message, SD_BUS_TYPE_STRING);
        const std::string variant = render_next(message);
        properties[name] = variant.substr(1, variant.size() - 2);
        sd_bus_message_exit_container(message);
    }
    return properties;
}

int receive_reply(sd_bus_message* message, void* user, sd_bus_error* /*error*/)
{
    Reply& reply = *static_cast<Reply*>(user);
    reply.message.reset(sd_bus_message_ref(message));
    const sd_bus_error* const error = sd_bus_message_get_error(message);
    reply.text = error == nullptr ? render(message)
                                  : std::string("error ") + error->name + ": " + error->message;
    return 1;
}

int receive_signal(sd_bus_message* message, void* user, sd_bus_error* /*error*/)
{
    Signal signal{.sender = sd_bus_message_get_sender(message),
                  .path = sd_bus_message_get_path(message),
                  .member = sd_bus_message_get_member(message),
                  .body = render(message),
                  .changed = {}};
    if (signal.member == "PropertiesChanged")
    {
        sd_bus_message_skip(message, "s");
        signal.changed = read_properties(message);
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
    check(sd_bus_open_system(&bus));
    bus_.reset(bus);
    // Answered by the daemon, which runs whatever the service does.
    const char* name = nullptr;
    check(sd_bus_get_unique_name(bus, &name));
}

Client::Pending Client::start(const Message& call)
{
    auto pending = std::make_unique<Reply>();
    sd_bus_slot* slot = nullptr;
    // The deadline is this client's; sd-bus is to report what the service does alone.
    check(sd_bus_call_async(bus(), &slot, call.get(), receive_reply, pending.get(), UINT64_MAX));
    pending->slot.reset(slot);
    return pending;
}

Reply Client::wait(Pending pending)
{
    wait_for([&] { return pending->message != nullptr; });
    pending->slot.reset(); // which holds the address
    return std::move(*pending);
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
        pump_();
        bool received = false;
        while (check(sd_bus_process(bus(), nullptr)) > 0)
        {
            received = true;
        }
        constexpr std::uint64_t nap_us = 1'000;
        received ? 0 : sd_bus_wait(bus(), nap_us);
    }
    return true;
}

void Client::settle(const std::string& service)
{
    // sd-bus answers a ping on any path, and the bus keeps the order between two connections.
    call({service, "/"}, "org.freedesktop.DBus.Peer", "Ping").body();
}

Properties Client::get_all(const Object& object, const char* interface)
{
    return read_properties(
        call(object, "org.freedesktop.DBus.Properties", "GetAll", "s", interface).body());
}

std::string Client::introspect(const Object& object)
{
    const Reply reply = call(object, "org.freedesktop.DBus.Introspectable", "Introspect");
    return read<const char*>(reply.body(), SD_BUS_TYPE_STRING);
}

void Client::subscribe(const std::string& rule)
{
    check(sd_bus_add_match(bus(), nullptr, rule.c_str(), receive_signal, &signals_));
}

Message Client::new_signal(const char* path, const char* interface, const char* member)
{
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(bus(), &message, path, interface, member));
    return Message(message);
}

std::string Client::name_owner(const char* name)
{
    const Reply reply =
        call({daemon_name, "/org/freedesktop/DBus"}, daemon_name, "GetNameOwner", "s", name);
    return reply.ok() ? read<const char*>(reply.body(), SD_BUS_TYPE_STRING) : "";
}

} // namespace support
