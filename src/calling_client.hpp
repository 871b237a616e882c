/*
 * The clients that have calls open in a context: how many each has, and whether it is still there.
 *
 * A client that has had a call open for more than a second, or whose host wants to hear of its end,
 * is watched: the bus is asked to tell when the client's unique name goes, and, since it may have
 * gone before, whether it is there. The watch ends with the client's last open call. One timer of
 * the context looks for such clients every second, for as long as there are any; it also renews
 * what the bus has refused.
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
    /** Whether it was there when the timer looked last. */
    bool is_old = false;
    /** The match of the name's end; null if the client isn't watched. */
    Slot match{nullptr, sd_bus_slot_unref};
    /** The question whether the name is there. */
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

/** A call's hold of its client. The client is forgotten with its last hold. */
class HeldClient
{
  public:
    /** A null name is a sender without one, of whom nothing is known. */
    HeldClient(GANTRY_cpp_context& context, const char* name);
    explicit HeldClient(CallingClients::Map::iterator held) noexcept;
    HeldClient(HeldClient&& from) noexcept;
    HeldClient(const HeldClient&) = delete;
    HeldClient& operator=(const HeldClient&) = delete;
    HeldClient& operator=(HeldClient&&) = delete;
    ~HeldClient();

    [[nodiscard]] std::uint32_t holds() const noexcept
    {
        return is_held ? client->second.holds : 0;
    }
    [[nodiscard]] bool operator==(const HeldClient& other) const noexcept
    {
        return is_held && other.is_held && client == other.client;
    }

    /** Has the bus tell when the client leaves. Returns a negative errno if that fails. */
    [[nodiscard]] int watch() const noexcept;

  private:
    bool is_held;
    CallingClients::Map::iterator client;
};

} // namespace gantry
