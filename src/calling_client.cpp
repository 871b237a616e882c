#include "calling_client.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"

#include <array>
#include <cstdio>
#include <utility>

namespace gantry
{
namespace
{

constexpr char bus_name[] = "org.freedesktop.DBus";
constexpr std::uint64_t tick = 1'000'000; // microseconds

using Named = CallingClients::Map::value_type;

void close_calls_of_named(Named& client)
{
    auto& context = client.second.context;
    context.state->calls.clients.close_calls_of(context, HeldClient(client));
}

/** Handles NameOwnerChanged of the client's unique name, which never gets another owner. */
int on_owner_changed(sd_bus_message* message, void* client, sd_bus_error* /*error*/)
{
    const char* owner = nullptr;
    if (is_from_bus(message) && sd_bus_message_skip(message, "ss") >= 0 &&
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &owner) > 0 && *owner == '\0')
    {
        close_calls_of_named(*static_cast<Named*>(client));
    }
    return 0;
}

int on_has_owner(sd_bus_message* message, void* client, sd_bus_error* /*error*/)
{
    int has_owner = 1; // unless the bus says that it hasn't
    sd_bus_message_read_basic(message, SD_BUS_TYPE_BOOLEAN, &has_owner);
    if (has_owner == 0)
    {
        close_calls_of_named(*static_cast<Named*>(client));
    }
    return 1;
}

/** Without this handler, sd-bus would close the connection if the bus refuses the match. */
int on_match_added(sd_bus_message* message, void* client, sd_bus_error* /*error*/)
{
    if (sd_bus_message_is_method_error(message, nullptr) > 0)
    {
        static_cast<Named*>(client)->second.match.reset();
    }
    return 1;
}

int watch_named(Named& client) noexcept
{
    auto& [name, state] = client;
    if (state.match != nullptr)
    {
        return 0;
    }
    sd_bus* bus = GANTRY_get_sd_bus(state.context.bus);
    std::array<char, 512> rule{}; // a name has at most 255 bytes
    std::snprintf(rule.data(), rule.size(),
                  "type='signal',sender='%s',path='/org/freedesktop/DBus',interface='%s',"
                  "member='NameOwnerChanged',arg0='%s'",
                  bus_name, bus_name, name.c_str());
    sd_bus_slot* slot = nullptr;
    int result =
        sd_bus_add_match_async(bus, &slot, rule.data(), on_owner_changed, on_match_added, &client);
    if (result < 0)
    {
        return result;
    }
    state.match.reset(slot);
    result = sd_bus_call_method_async(bus, &slot, bus_name, "/org/freedesktop/DBus", bus_name,
                                      "NameHasOwner", on_has_owner, &client, "s", name.c_str());
    if (result < 0)
    {
        state.match.reset();
        return result;
    }
    state.question.reset(slot);
    return 0;
}

int on_tick(sd_event_source* timer, std::uint64_t /*now*/, void* data)
{
    auto& clients = *static_cast<CallingClients*>(data);
    for (auto& client : clients.by_name)
    {
        if (std::exchange(client.second.is_old, true))
        {
            static_cast<void>(watch_named(client)); // a failure is repeated at the next tick
        }
    }
    if (!clients.by_name.empty())
    {
        sd_event_source_set_time_relative(timer, tick);
        sd_event_source_set_enabled(timer, SD_EVENT_ONESHOT);
    }
    return 0;
}

/** Starts the timer, if it isn't running. If that fails, the next call that is kept open tries
 *  again. */
void start_timer(GANTRY_cpp_context& context, CallingClients& clients)
{
    int enabled = SD_EVENT_OFF;
    if (clients.timer == nullptr)
    {
        sd_event_source* made = nullptr;
        sd_event_add_time_relative(context.event.get(), &made, CLOCK_MONOTONIC, tick, 0, on_tick,
                                   &clients);
        clients.timer.reset(made);
    }
    else if (sd_event_source_get_enabled(clients.timer.get(), &enabled) == 0)
    {
        sd_event_source_set_time_relative(clients.timer.get(), tick);
        sd_event_source_set_enabled(clients.timer.get(), SD_EVENT_ONESHOT);
    }
}

} // namespace

HeldClient::HeldClient(GANTRY_cpp_context& context, const char* name)
{
    if (name != nullptr)
    {
        auto& clients = context.state->calls.clients;
        client = &*clients.by_name.try_emplace(name, CallingClient{context}).first;
        ++client->second.holds;
        start_timer(context, clients);
    }
}

HeldClient::HeldClient(Named& held) noexcept : client(&held)
{
    ++client->second.holds;
}

HeldClient::HeldClient(HeldClient&& from) noexcept : client(std::exchange(from.client, nullptr))
{
}

HeldClient::~HeldClient()
{
    if (client != nullptr && --client->second.holds == 0)
    {
        auto& by_name = client->second.context.state->calls.clients.by_name;
        by_name.erase(by_name.find(client->first));
    }
}

int HeldClient::watch() const noexcept
{
    return client != nullptr ? watch_named(*client) : 0;
}

} // namespace gantry
