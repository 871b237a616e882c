/*
 * What a host frees while functions on the stack still use it is destroyed only after they have
 * returned.
 *
 * Inside a callback of the connection, sd-bus and the called object are on the stack; inside a
 * dispatch loop, the loop is. An object that is freed in a callback, or a context that is freed in
 * either, is only noted in the context's state. destroy_if_idle() destroys it later. Its callers:
 *
 *   - an event source, which sd-event dispatches before the connection's, so that no message
 *     reaches an object that was freed;
 *   - the outermost dispatch loop of the context, when it is entered and when it ends;
 *   - GANTRY_property_list, after its last call of the host's function;
 *   - for a context, the thread's next use of the library.
 *
 * Freeing a context also stops its loops. Its destruction destroys its freed objects, too.
 */
#pragma once

#include <gantry/context.hpp>

#include <gantry/instance.h>

namespace gantry
{

/** Counts a dispatch loop of the context as running for as long as this object exists. */
class InLoop
{
  public:
    explicit InLoop(GANTRY_cpp_context& entered) noexcept;
    /** At the end of the outermost loop, withdraws a stop and destroys what was freed meanwhile. */
    ~InLoop();
    InLoop(const InLoop&) = delete;
    InLoop(InLoop&&) = delete;
    InLoop& operator=(const InLoop&) = delete;
    InLoop& operator=(InLoop&&) = delete;

  private:
    GANTRY_cpp_context& context;
};

/** Whether functions on the stack use the context: one of its loops, or sd-bus in a callback. */
bool is_in_use(GANTRY_cpp_context& context) noexcept;

/** Removes an object with its manager from the bus and destroys it: at once, or, inside a callback
 *  of its context's connection, after that callback. */
void destroy_object(GANTRY_instance& instance) noexcept;

/** Stops the loops of a context that is in use, and has it destroyed once it is idle. */
void destroy_later(GANTRY_cpp_context& context) noexcept;

/** Destroys the freed objects and the context, if it was freed, unless they are still in use.
 *  Returns whether the context was destroyed. */
bool destroy_if_idle(GANTRY_cpp_context& context) noexcept;

/** Destroys the freed objects now, even inside a callback. For the destruction of the context. */
void destroy_freed_objects(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
