/*
 * The objects of a context after they were published: found by interface and path, told to the bus
 * as added, and taken down one by one.
 *
 * An object whose frames may be on the stack can't be deleted. That is so inside any callback of
 * the connection; there a freed object leaves the tracker at once and is deleted from the event
 * loop. That source comes before the connection's, so no message meets an object that has left.
 */
#include "c_edge.hpp"
#include "carrier.hpp"
#include "descriptor.hpp"
#include "gantrycontext.hpp"
#include "resolve.hpp"

#include <gantry/instance.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace
{

constexpr char source_stem[] = "objects";

bool is_equal(const char* one, const char* other)
{
    return std::strcmp(one, other) == 0;
}

/** The interface of an object as sd-bus takes it: a list, which it only reads. */
struct Interfaces
{
    explicit Interfaces(const GANTRY_instance& instance) :
        names{const_cast<char*>(instance.descriptor->interface), nullptr}
    {
    }

    char* names[2];
};

/** The class of an interface that has had objects on the context; else null. */
const gantry::Descriptor* class_of(const GANTRY_cpp_context& context, const char* interface)
{
    for (const auto* descriptor : context.classes)
    {
        if (interface != nullptr && is_equal(descriptor->interface, interface))
        {
            return descriptor;
        }
    }
    return nullptr;
}

int depart(sd_event_source* /*source*/, void* context)
{
    gantry::take_down_leaving(*static_cast<GANTRY_cpp_context*>(context));
    return 0;
}

/** Has depart() called once, as the next thing that the event loop does. */
int schedule_departure(GANTRY_cpp_context& context)
{
    if (context.departure != nullptr)
    {
        return sd_event_source_set_enabled(context.departure, SD_EVENT_ONESHOT);
    }
    const int result =
        sd_event_add_defer(context.event.get(), &context.departure, depart, &context);
    return result < 0
               ? result
               : sd_event_source_set_priority(context.departure, SD_EVENT_PRIORITY_IMPORTANT);
}

} // namespace

bool gantry::is_in_callback(const GANTRY_cpp_context& context) noexcept
{
    sd_bus* bus = connection_of(context);
    return sd_bus_get_current_message(bus) != nullptr || sd_bus_get_current_slot(bus) != nullptr;
}

void gantry::take_down_leaving(GANTRY_cpp_context& context) noexcept
{
    if (is_in_callback(context))
    {
        return; // A callback outside of the event loop runs it. The next loop that is entered will.
    }
    while (auto* instance = context.leaving)
    {
        context.leaving = instance->next_leaving;
        instance->descriptor->destroy(instance->the_service);
    }
    context.departure = sd_event_source_disable_unref(context.departure);
}

void GANTRY_instance_get_interface(GANTRY_instance* instance, const char** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr && out != nullptr)
    {
        *out = instance->descriptor->interface;
    }
}

void GANTRY_instance_find(GANTRY_cpp_context* context, const char* interface, const char* path,
                          GANTRY_instance** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (out == nullptr)
    {
        return;
    }
    *out = nullptr;
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    const auto* descriptor = class_of(*context, interface);
    if (descriptor == nullptr)
    {
        return;
    }
    for (const auto& tracked : context->tracker)
    {
        if (tracked.deleter == descriptor->destroy)
        {
            auto* instance = descriptor->instance_of(tracked.object);
            if (path == nullptr || is_equal(instance->path, path))
            {
                *out = instance;
                return;
            }
        }
    }
}

void GANTRY_instance_announce_added(GANTRY_instance* instance, int* error)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    gantry::at_c_edge(GANTRY_HERE, error,
                      [instance]
                      {
                          if (instance == nullptr)
                          {
                              return EINVAL;
                          }
                          Interfaces interfaces{*instance};
                          // sd-bus runs the getters, hence the carrier.
                          const int result = gantry::Carrier::enter(
                              [&]
                              {
                                  return sd_bus_emit_interfaces_added_strv(
                                      GANTRY_get_sd_bus(instance->vctx->bus), instance->path,
                                      interfaces.names);
                              });
                          gantry::throw_if_failed(result, "sd_bus_emit_interfaces_added_strv");
                          return 0;
                      });
}

void GANTRY_instance_free(GANTRY_instance** instance)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance == nullptr || *instance == nullptr)
    {
        return;
    }
    auto& freed = *std::exchange(*instance, nullptr);
    auto& context = *freed.vctx;
    auto& tracker = context.tracker;
    auto found = tracker.begin();
    while (found != tracker.end() && found->object != freed.the_service)
    {
        ++found;
    }
    if (found == tracker.end())
    {
        return; // It is leaving already.
    }
    tracker.erase(found);

    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    Interfaces interfaces{freed};
    if (const int result = sd_bus_emit_interfaces_removed_strv(bus, freed.path, interfaces.names);
        result < 0)
    {
        GANTRY_LOG(gantry::log::failed, "sd_bus_emit_interfaces_removed_strv failed, rv=%d",
                   result);
    }
    gantry::remove_object_manager(context, freed.manager);

    if (!gantry::is_in_callback(context))
    {
        freed.descriptor->destroy(freed.the_service);
        return;
    }
    freed.next_leaving = std::exchange(context.leaving, &freed);
    if (const int result = schedule_departure(context); result < 0)
    {
        // It goes with the next that leaves, or with the context.
        GANTRY_LOG(gantry::log::failed, "sd_event_add_defer failed, rv=%d", result);
    }
}
