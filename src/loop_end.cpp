#include "loop_end.hpp"

#include "gantrycontext.hpp"

#include <gantry/loop.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace
{

/** Under the host's own event loop: the callback that freed the context has returned. */
int destroy_freed(sd_event_source* /*source*/, void* freed)
{
    auto* context = static_cast<GANTRY_cpp_context*>(freed);
    if (!gantry::is_in_use(*context))
    {
        gantry::destroy(context);
    }
    return 0;
}

} // namespace

namespace gantry
{

InLoop::InLoop(GANTRY_cpp_context& entered) noexcept : context(entered)
{
    if (++context.loops == 1)
    {
        take_down_leaving(context);
    }
}

InLoop::~InLoop()
{
    if (--context.loops > 0)
    {
        return;
    }
    if (!context.freed)
    {
        context.stopping = false;
    }
    else if (!is_in_use(context))
    {
        destroy(&context);
    }
    // Else a callback of the host's own event loop entered this loop, or the thread is being ended
    // inside of a callback: its exit destroys the context.
}

bool is_in_use(const GANTRY_cpp_context& context) noexcept
{
    return context.loops > 0 || is_in_callback(context);
}

void free_later(GANTRY_cpp_context& context) noexcept
{
    context.freed = true;
    context.stopping = true;
    // If there is no memory for it, the thread's next use or its exit destroys the context.
    if (context.destruction == nullptr &&
        sd_event_add_defer(context.event.get(), &context.destruction, destroy_freed, &context) >= 0)
    {
        sd_event_source_set_priority(context.destruction, SD_EVENT_PRIORITY_IMPORTANT);
    }
}

} // namespace gantry

// A signal handler calls it: no log, no lock, no allocation.
void GANTRY_context_stop(GANTRY_cpp_context* context)
{
    if (context == nullptr)
    {
        context = gantry::own_context();
    }
    if (context != nullptr)
    {
        context->stopping = true;
    }
}
