// Opening and releasing connections.

#include "sdbusplus/bus.hpp"

namespace sdbusplus
{
namespace bus
{
namespace
{

std::string read_unique_name(SdBusInterface* intf, sd_bus* b)
{
    if (b == nullptr)
    {
        return {};
    }
    // On failure the pointer stays null, and std::string's constructor throws.
    const char* name = nullptr;
    intf->sd_bus_get_unique_name(b, &name);
    return std::string(name);
}

} // namespace

bus::bus(busp_t b, SdBusInterface* i, std::false_type) :
    intf(i), connection(b, details::BusDeleter{i}), unique_name(read_unique_name(i, b))
{
}

bus::bus(busp_t b, SdBusInterface* i) : bus(i->sd_bus_ref(b), i, std::false_type{})
{
}

bus::bus(busp_t b, std::false_type held) : bus(b, &sdbus_impl, held)
{
}

bus new_default_system()
{
    sd_bus* b = nullptr;
    sd_bus_default_system(&b);
    return bus(b, std::false_type{});
}

bus new_system()
{
    sd_bus* b = nullptr;
    sd_bus_open_system(&b);
    bus opened(b, std::false_type{});
    opened.set_should_close(true);
    return opened;
}

} // namespace bus
} // namespace sdbusplus
