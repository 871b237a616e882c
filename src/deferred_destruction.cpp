#include "deferred_destruction.hpp"

#include "connection.hpp"
#include "exception_boundary.hpp"
#include "log.hpp"

#include <systemd/sd-event.h>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "deferred_destruction";

/** Destroys what was freed and is not in use any more; that may be the context. */
void destroy_freed(GANTRY_cpp_context& context) noexcept
{
    if (is_in_callback(context))
    {
        return;
    }
    const NoCancellation no_cancellation;
    destroy_freed_objects(context);
    if (context.destroy_when_idle != nullptr && context.loops == 0)
    {
        context.destroy_when_idle(&context);
    }
}

int on_event(sd_event_source* /*source*/, void* context)
{
    destroy_freed(*static_cast<GANTRY_cpp_context*>(context));
    return 0;
}

/** Has the event loop call on_event() next. If that fails, a loop or the context's destruction
 *  remains. */
void schedule(GANTRY_cpp_context& context) noexcept
{
    int result = 0;
    if (context.deferral != nullptr)
    {
        result = sd_event_source_set_enabled(context.deferral, SD_EVENT_ONESHOT);
    }
    else if (result =
                 sd_event_add_defer(context.event.get(), &context.deferral, on_event, &context);
             result >= 0)
    {
        result = sd_event_source_set_priority(context.deferral, SD_EVENT_PRIORITY_IMPORTANT);
    }
    if (result < 0)
    {
        GANTRY_LOG(log::failed, "sd_event_add_defer failed, rv=%d", result);
    }
}

} // namespace

InLoop::InLoop(GANTRY_cpp_context& entered) noexcept : context(entered)
{
    if (++context.loops == 1)
    {
        // Freed in a callback that ran outside of the event loop.
        destroy_freed(context);
    }
}

InLoop::~InLoop()
{
    if (--context.loops > 0)
    {
        return;
    }
    if (context.destroy_when_idle == nullptr)
    {
        context.stopping = false;
    }
    // A callback may still be running: one that the host's own event loop called has entered this
    // loop, or the thread is being ended inside of a callback.
    destroy_freed(context);
}

bool is_in_use(GANTRY_cpp_context& context) noexcept
{
    return context.loops > 0 || is_in_callback(context);
}

void destroy_later(GANTRY_cpp_context& context, FreedObject& object) noexcept
{
    object.next = context.freed_objects;
    context.freed_objects = &object;
    schedule(context);
}

void destroy_later(GANTRY_cpp_context& context,
                   void (*destroy)(GANTRY_cpp_context* context)) noexcept
{
    context.destroy_when_idle = destroy;
    context.stopping = true;
    schedule(context);
}

void destroy_freed_objects(GANTRY_cpp_context& context) noexcept
{
    while (FreedObject* first = context.freed_objects)
    {
        context.freed_objects = first->next;
        first->destroy(*first);
    }
}

} // namespace gantry
