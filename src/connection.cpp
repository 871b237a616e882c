#include "connection.hpp"

#include "edges.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

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

/** How many announcements are on the thread's stack. */
constinit thread_local unsigned announcements = 0;

} // namespace

sd_bus* GANTRY_get_sd_bus(sdbusplus::bus::bus& bus)
{
    return Connection::of(bus);
}

int gantry::request_name(GANTRY_cpp_context& context, const char* name)
{
    constexpr auto flags = SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    int calls = 0;
    const int result = uninterrupted(
        [&]
        {
            ++calls;
            return sd_bus_request_name(GANTRY_get_sd_bus(context.bus), name, flags);
        });
    // The call that was interrupted had been sent, and the bus granted the name.
    return calls > 1 && result == -EALREADY ? 0 : result;
}

void gantry::check_connection(GANTRY_cpp_context& context)
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    const int open = sd_bus_is_open(bus);
    if (open > 0 && sd_bus_get_event(bus) != nullptr)
    {
        return;
    }
    if (int code = 0; sd_event_get_exit_code(context.event.get(), &code) < 0)
    {
        throw_if_failed(open < 0 ? open : -ENOTCONN,
                        open > 0 ? "sd_bus_attach_event" : "sd_bus_is_open");
    }
}

bool gantry::is_in_callback(GANTRY_cpp_context& context) noexcept
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    return announcements > 0 || sd_bus_get_current_message(bus) != nullptr ||
           sd_bus_get_current_slot(bus) != nullptr;
}

gantry::InAnnouncement::InAnnouncement() noexcept
{
    ++announcements;
}

gantry::InAnnouncement::~InAnnouncement()
{
    --announcements;
}
