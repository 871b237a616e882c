/*
 * The clients that have calls open in a context: how many each has, and whether it is still on the
 * bus.
 *
 * A client is watched if it has had calls open for more than a second, or if the host has asked to
 * be called when the client leaves. The bus is then asked to signal when the client's unique name
 * loses its owner, and, since that may have happened already, whether the name has an owner. The
 * watch ends with the client's last open call. One timer per context finds the clients to watch. It
 * runs every second while any client has an open call, and repeats a match that the bus refused.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace gantry
{

struct CallingClient
{
    using Slot = std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)>;

    GANTRY_cpp_context& context;
    std::uint32_t holds = 0;
    /** Whether the timer has run since the client's first open call. */
    bool is_old = false;
    /** The match on the loss of the name's owner; null if the client isn't watched. */
    Slot match{nullptr, sd_bus_slot_unref};
    /** The pending call that asks whether the name has an owner. */
    Slot question{nullptr, sd_bus_slot_unref};
};

class HeldClient;

/** The clients by their unique names, and the timer. */
struct CallingClients
{
    using Map = std::map<std::string, CallingClient, std::less<>>;
    using Timer = std::unique_ptr<sd_event_source, decltype(&sd_event_source_disable_unref)>;

    /** Closes the calls of a client that has left. */
    void (*close_calls_of)(GANTRY_cpp_context& context, HeldClient client);
    Map by_name;
    Timer timer{nullptr, sd_event_source_disable_unref};
};

/** A call's reference to its client. The last reference erases the client's entry. */
class HeldClient
{
  public:
    /** `name` is null for a sender without a unique name, which is neither counted nor watched. */
    HeldClient(GANTRY_cpp_context& context, const char* name);
    explicit HeldClient(CallingClients::Map::value_type& held) noexcept;
    HeldClient(HeldClient&& from) noexcept;
    HeldClient(const HeldClient&) = delete;
    HeldClient& operator=(const HeldClient&) = delete;
    HeldClient& operator=(HeldClient&&) = delete;
    ~HeldClient();

    [[nodiscard]] std::uint32_t holds() const noexcept
    {
        return client != nullptr ? client->second.holds : 0;
    }
    [[nodiscard]] bool operator==(const HeldClient& other) const noexcept
    {
        return client != nullptr && client == other.client;
    }

    /** Watches the client. Returns a negative errno if that fails. */
    [[nodiscard]] int watch() const noexcept;

  private:
    /** Null for none. */
    CallingClients::Map::value_type* client = nullptr;
};

} // namespace gantry
