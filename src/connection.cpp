#include "connection.hpp"

#include "edges.hpp"

#include <systemd/sd-bus.h>

namespace
{

/** A bus object gives its connection only to its friends. */
struct Connection : private sdbusplus::bus::details::bus_friend
{
    static sd_bus* of(const sdbusplus::bus::bus& bus)
    {
        return get_busp(bus);
    }
};

} // namespace

sd_bus* GANTRY_get_sd_bus(sdbusplus::bus::bus& bus)
{
    return Connection::of(bus);
}

void gantry::request_name(GANTRY_cpp_context& context, const char* name)
{
    constexpr auto flags = SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    throw_if_failed(sd_bus_request_name(GANTRY_get_sd_bus(context.bus), name, flags),
                    "sd_bus_request_name");
}

bool gantry::is_in_callback(GANTRY_cpp_context& context) noexcept
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    return sd_bus_get_current_message(bus) != nullptr || sd_bus_get_current_slot(bus) != nullptr;
}
