// References to connections; the instance that forwards to libsystemd.

#include "sdbusplus/bus.hpp"

namespace sdbusplus
{

// Trivially destructible, so a thread that exits after static destruction can still use it.
constinit SdBusImpl sdbus_impl;

namespace bus
{

bus::bus(busp_t b, SdBusInterface* intf, std::false_type) : connection(b, details::BusDeleter{intf})
{
    get_unique_name();
}

bus::bus(busp_t b, SdBusInterface* intf) : bus(intf->sd_bus_ref(b), intf, std::false_type{})
{
}

bus::bus(busp_t b, std::false_type held) : bus(b, &sdbus_impl, held)
{
}

std::string bus::get_unique_name() const
{
    if (!connection)
    {
        return {};
    }
    // On failure the pointer stays null, and std::string's constructor throws.
    const char* name = nullptr;
    getInterface()->sd_bus_get_unique_name(connection.get(), &name);
    return std::string(name);
}

} // namespace bus
} // namespace sdbusplus
