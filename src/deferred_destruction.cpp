#include "deferred_destruction.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "instance.hpp"
#include "log.hpp"

#include <systemd/sd-event.h>

#include <utility>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "deferred_destruction";

/** Removes the manager that was added with an object; null is ignored. */
void remove_object_manager(GANTRY_cpp_context& context, sd_bus_slot* slot) noexcept
{
    if (slot == nullptr)
    {
        return;
    }
    if (context.object_manager != nullptr && context.object_manager->slot == slot)
    {
        delete std::exchange(context.object_manager, nullptr);
        return;
    }
    // The slot floats. Once it doesn't, its only reference is the one added here, which is dropped.
    sd_bus_slot_ref(slot);
    sd_bus_slot_set_floating(slot, 0);
    sd_bus_slot_unref(slot);
}

/** Destroys an object even inside a callback. If that is for a client's write, sd-bus then answers
 *  the write with an error. */
void destroy_now(GANTRY_instance& instance) noexcept
{
    remove_object_manager(*instance.vctx, instance.manager);
    instance.descriptor->deleter(instance.the_service);
}

int on_event(sd_event_source* /*source*/, void* context)
{
    destroy_if_idle(*static_cast<GANTRY_cpp_context*>(context));
    return 0;
}

/** Has the event loop call on_event() next. If that fails, the next loop or the context's
 *  destruction destroys what was freed. */
void schedule(GANTRY_cpp_context& context) noexcept
{
    auto*& source = context.state->destruction;
    int result = 0;
    if (source != nullptr)
    {
        result = sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    }
    else if (result = sd_event_add_defer(context.event.get(), &source, on_event, &context);
             result >= 0)
    {
        result = sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IMPORTANT);
    }
    if (result < 0)
    {
        GANTRY_LOG(log::failed, "sd_event_add_defer failed, rv=%d", result);
    }
}

} // namespace

InLoop::InLoop(GANTRY_cpp_context& entered) noexcept : context(entered)
{
    if (++context.state->loops == 1)
    {
        // Something may have been freed in a callback that ran outside of the event loop.
        destroy_if_idle(context);
    }
}

InLoop::~InLoop()
{
    auto& state = *context.state;
    if (--state.loops > 0)
    {
        return;
    }
    if (!state.destroy_when_idle)
    {
        state.stopping = false;
    }
    // This destroys nothing if a callback is still running: one that the host's own event loop
    // called has entered this loop, or the thread is being ended inside of a callback.
    destroy_if_idle(context);
}

bool is_in_use(GANTRY_cpp_context& context) noexcept
{
    return context.state->loops > 0 || is_in_callback(context);
}

void destroy_object(GANTRY_instance& instance) noexcept
{
    auto& context = *instance.vctx;
    if (!is_in_callback(context))
    {
        destroy_now(instance);
        return;
    }
    instance.older = context.state->freed_objects;
    context.state->freed_objects = &instance;
    schedule(context);
}

void destroy_later(GANTRY_cpp_context& context) noexcept
{
    context.state->destroy_when_idle = true;
    context.state->stopping = true;
    schedule(context);
}

bool destroy_if_idle(GANTRY_cpp_context& context) noexcept
{
    if (is_in_callback(context))
    {
        return false;
    }
    const NoCancellation no_cancellation;
    destroy_freed_objects(context);
    if (!context.state->destroy_when_idle || context.state->loops > 0)
    {
        return false;
    }
    context.state->destroy(&context);
    return true;
}

void destroy_freed_objects(GANTRY_cpp_context& context) noexcept
{
    auto& state = *context.state;
    while (auto* newest = state.freed_objects)
    {
        state.freed_objects = newest->older;
        destroy_now(*newest);
    }
}

} // namespace gantry
