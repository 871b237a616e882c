#include "connection.hpp"

#include "exception_boundary.hpp"
#include "log.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{

constexpr char source_stem[] = "connection";

/** A bus object gives its connection only to its friends. */
struct Connection : private sdbusplus::bus::details::bus_friend
{
    static sd_bus* of(sdbusplus::bus_t& bus)
    {
        return get_busp(bus);
    }
};

constexpr char bus_name[] = "org.freedesktop.DBus";

/** How many announcements are on the thread's stack. */
constinit thread_local unsigned announcements = 0;

/** The oldest grant of a name; the end if the name isn't owned. */
auto find_grant(std::vector<const char*>& grants, const char* name)
{
    return std::find_if(grants.begin(), grants.end(),
                        [name](const char* granted) { return std::strcmp(granted, name) == 0; });
}

/** NameLost, which the bus sends to the former owner alone, ends the oldest grant: when it is read,
 * the host may have got the name again. */
[[gnu::noinline]] int on_name_lost(sd_bus_message* message, GANTRY_cpp_context& context)
{
    const char* name = nullptr;
    const char* const sender = sd_bus_message_get_sender(message);
    if (sender == nullptr || std::strcmp(sender, bus_name) != 0 ||
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &name) <= 0)
    {
        return 0;
    }
    auto& grants = context.granted_names;
    if (const auto grant = find_grant(grants, name); grant != grants.end())
    {
        grants.erase(grant);
        if (find_grant(grants, name) == grants.end())
        {
            GANTRY_LOG(gantry::log::failed, "the connection has lost the name [%s]", name);
        }
    }
    return 0;
}

/** Sees each message that arrives. */
int on_message(sd_bus_message* message, void* context, sd_bus_error* /*error*/)
{
    return sd_bus_message_is_signal(message, bus_name, "NameLost") > 0
               ? on_name_lost(message, *static_cast<GANTRY_cpp_context*>(context))
               : 0;
}

/** A loss that comes before this is still unread: only a loop dispatches it. A filter, since a
 * match would make each call that arrives dearer. */
void hear_of_losses(GANTRY_cpp_context& context)
{
    if (context.name_lost != nullptr)
    {
        return;
    }
    const int result =
        sd_bus_add_filter(GANTRY_get_sd_bus(context.bus), &context.name_lost, on_message, &context);
    if (result < 0)
    {
        GANTRY_LOG(gantry::log::failed, "sd_bus_add_filter failed, rv=%d", result);
    }
}

} // namespace

sd_bus* GANTRY_get_sd_bus(sdbusplus::bus_t& bus)
{
    return Connection::of(bus);
}

int gantry::request_name(GANTRY_cpp_context& context, const char* name)
{
    constexpr auto flags = SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    auto& grants = context.granted_names;
    grants.reserve(grants.size() + 1);
    int calls = 0;
    const int result = uninterrupted(
        [&]
        {
            ++calls;
            return sd_bus_request_name(bus, name, flags);
        });
    if (result < 0 && result != -EALREADY)
    {
        return result;
    }
    if (const auto grant = find_grant(grants, name); result == -EALREADY && grant != grants.end())
    {
        grants.erase(grant);
    }
    grants.push_back(name);
    hear_of_losses(context);
    // The call that was interrupted had been sent, and the bus granted the name.
    return calls > 1 && result == -EALREADY ? 0 : result;
}

const char* gantry::owned_name(GANTRY_cpp_context& context) noexcept
{
    const auto& grants = context.granted_names;
    const bool is_open = sd_bus_is_open(GANTRY_get_sd_bus(context.bus)) > 0;
    return is_open && !grants.empty() ? grants.back() : nullptr;
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
