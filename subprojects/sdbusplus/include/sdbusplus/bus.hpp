// A bus holds one reference on a connection and knows how to release it: a connection that others
// may share is left open, a private one is flushed and closed.
#pragma once

#include "sdbusplus/sdbus.hpp"

#include <memory>
#include <string>
#include <type_traits>

namespace sdbusplus
{
namespace bus
{

using busp_t = sd_bus*;

namespace details
{
class bus_friend;

/** Releases a bus's reference on its connection. */
struct BusDeleter
{
    void operator()(sd_bus* b) const
    {
        (intf->*release)(b);
    }

    SdBusInterface* intf;
    sd_bus* (SdBusInterface::*release)(sd_bus*) = &SdBusInterface::sd_bus_unref;
};

} // namespace details

struct bus
{
    /**
     * Takes a further reference and releases it with sd_bus_unref. Null makes a bus without
     * connection. Reading the unique name waits for the reply to the connection's Hello. Throws
     * std::logic_error if the connection has no unique name.
     */
    explicit bus(busp_t b, SdBusInterface* intf = &sdbus_impl);

    /** As above, but takes over the caller's reference, and releases it even if this throws. */
    bus(busp_t b, std::false_type);

    bus(bus&&) = default;
    bus& operator=(bus&&) = default;

    /** Empty for a bus without connection. */
    const std::string& get_unique_name() const noexcept
    {
        return unique_name;
    }

    SdBusInterface* getInterface() const noexcept
    {
        return intf;
    }

    friend class details::bus_friend;

    /** Whether the release flushes and closes the connection; initially it doesn't. */
    void set_should_close(bool should_close)
    {
        connection.get_deleter().release = should_close ? &SdBusInterface::sd_bus_flush_close_unref
                                                        : &SdBusInterface::sd_bus_unref;
    }

  private:
    bus(busp_t b, SdBusInterface* intf, std::false_type);

    SdBusInterface* intf;
    std::unique_ptr<sd_bus, details::BusDeleter> connection;
    std::string unique_name;
};

/**
 * The calling thread's shared connection to the system bus; its release leaves it open. Returns a
 * bus without connection if it can't be opened.
 */
bus new_default_system();

/**
 * A private connection to the system bus; its release flushes and closes it. Returns a bus without
 * connection if it can't be opened.
 */
bus new_system();

namespace details
{

/** Gives access to the sd_bus, for calls of sd-bus. */
class bus_friend
{
  public:
    static sd_bus* get_busp(const bus& b) noexcept
    {
        return b.connection.get();
    }
};

} // namespace details
} // namespace bus

using bus_t = bus::bus;

} // namespace sdbusplus
