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
        should_close ? intf->sd_bus_flush_close_unref(b) : intf->sd_bus_unref(b);
    }

    SdBusInterface* intf;
    bool should_close = false;
};

} // namespace details

struct bus
{
    /**
     * Takes a further reference and releases it with sd_bus_unref. Null makes a bus without
     * connection. Asks for the unique name, which waits for the reply to the connection's Hello.
     * Throws std::logic_error if the connection has none.
     */
    explicit bus(busp_t b, SdBusInterface* intf = &sdbus_impl);

    /** As above, but takes over the caller's reference, and releases it even if this throws. */
    bus(busp_t b, std::false_type);

    bus(bus&&) = default;
    bus& operator=(bus&&) = default;

    /** Empty for a bus without connection. */
    std::string get_unique_name() const;

    SdBusInterface* getInterface() const noexcept
    {
        return connection.get_deleter().intf;
    }

    friend class details::bus_friend;

    /** Whether the release flushes and closes the connection; initially it doesn't. */
    void set_should_close(bool should_close)
    {
        connection.get_deleter().should_close = should_close;
    }

  private:
    bus(busp_t b, SdBusInterface* intf, std::false_type);

    std::unique_ptr<sd_bus, details::BusDeleter> connection;
};

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
