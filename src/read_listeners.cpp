/*
 * The `read` callbacks of hosts that work out values when a client reads them. A filter sees each
 * message before sd-bus dispatches it, and calls the callbacks of the objects that the message
 * reads. It is added with the first such callback of the context, so reads cost other hosts
 * nothing.
 */
#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "instance.hpp"
#include "served_call.hpp"

#include <gantry/instance.h>

#include <systemd/sd-bus.h>

#include <cstring>
#include <sdbusplus/exception.hpp>
#include <vector>

namespace
{

constexpr char source_stem[] = "read_listeners";
constexpr char properties[] = "org.freedesktop.DBus.Properties";
constexpr char object_manager[] = "org.freedesktop.DBus.ObjectManager";

/** What a message reads: nothing, if the path is null. */
struct Read
{
    const char* path = nullptr;
    /** Null for all interfaces. */
    const char* interface = nullptr;
    bool is_of_objects_below = false;
};

/** What a message reads. Hostile clients send these calls with other arguments, too: such a call
 *  reads nothing, and sd-bus answers it with an error. */
Read read_of(sd_bus_message* message)
{
    const char* const path = sd_bus_message_get_path(message);
    if (sd_bus_message_is_method_call(message, object_manager, "GetManagedObjects") > 0)
    {
        return {.path = path, .is_of_objects_below = true};
    }
    const bool is_get = sd_bus_message_is_method_call(message, properties, "Get") > 0 &&
                        sd_bus_message_has_signature(message, "ss") > 0;
    const bool is_get_all = sd_bus_message_is_method_call(message, properties, "GetAll") > 0 &&
                            sd_bus_message_has_signature(message, "s") > 0;
    const char* interface = nullptr;
    if ((!is_get && !is_get_all) ||
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &interface) <= 0)
    {
        return {};
    }
    sd_bus_message_rewind(message, 1);
    return {.path = path, .interface = is_get || *interface != '\0' ? interface : nullptr};
}

/** The objects that a message reads and that have a `read` callback, oldest first. */
std::vector<GANTRY_instance*> find_listeners(gantry::ObjectIndex& objects, const Read& read)
{
    std::vector<GANTRY_instance*> found;
    const auto add = [&found](GANTRY_instance* instance)
    {
        if (instance != nullptr && instance->read != nullptr)
        {
            found.push_back(instance);
        }
    };
    if (read.interface != nullptr)
    {
        add(objects.find(read.interface, read.path));
        return found;
    }
    for (auto* each = objects.oldest(); each != nullptr; each = each->newer)
    {
        if (read.is_of_objects_below ? gantry::is_below(read.path, each->path)
                                     : std::strcmp(read.path, each->path) == 0)
        {
            add(each);
        }
    }
    return found;
}

int on_message(sd_bus_message* message, void* data, sd_bus_error* error)
{
    auto& context = *static_cast<GANTRY_cpp_context*>(data);
    const auto call_listeners = [&]
    {
        try
        {
            const auto read = read_of(message);
            if (read.path == nullptr)
            {
                return 0;
            }
            // An object that one of them frees is destroyed later, so its record can be read here.
            for (auto* each : find_listeners(context.state->objects, read))
            {
                if (each->is_listed && each->read != nullptr && !context.state->destroy_when_idle)
                {
                    each->read(each, each->read_data);
                }
            }
            return 0;
        }
        catch (const sdbusplus::exception::internal_exception& failure)
        {
            return gantry::set_error(context.bus.getInterface(), error, failure);
        }
    };
    return gantry::bus_boundary(call_listeners, gantry::as_error);
}

void hear_of_reads(GANTRY_cpp_context& context)
{
    auto& filter = context.state->read_filter;
    if (filter == nullptr)
    {
        sd_bus_slot* slot = nullptr;
        const int result =
            sd_bus_add_filter(GANTRY_get_sd_bus(context.bus), &slot, on_message, &context);
        gantry::throw_if_failed(result, "sd_bus_add_filter");
        filter.reset(slot);
    }
}

} // namespace

void GANTRY_instance_on_read(GANTRY_instance* instance,
                             void (*read)(GANTRY_instance* instance, void* data), void* data)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance == nullptr)
    {
        return;
    }
    if (read != nullptr)
    {
        hear_of_reads(*instance->vctx);
    }
    instance->read = read;
    instance->read_data = data;
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}
