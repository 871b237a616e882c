/*
 * What a host frees while frames on the stack still work on it, and what is therefore destroyed
 * only after they have returned.
 *
 * Inside a callback of the connection, sd-bus and the called object are on the stack; inside a
 * dispatch loop, the loop is. An object that is freed in a callback, or a context that is freed in
 * either, is noted in the context's state. destroy_if_idle() destroys it. It is called by
 *
 *     an event source, which sd-event dispatches before the connection's, so that no message
 *     reaches an object that was freed
 *     the outermost dispatch loop of the context, when it is entered and when it ends
 *     the thread's next use of the library, for a context
 *
 * The destruction of a context destroys its freed objects, too. A freed context also stops its
 * loops.
 */
#pragma once

#include <gantry/context.hpp>

#include <gantry/instance.h>

namespace gantry
{

/** A dispatch loop's presence on the stack, from its entry to however it ends. */
class InLoop
{
  public:
    explicit InLoop(GANTRY_cpp_context& entered) noexcept;
    /** The outermost loop ends a stop, and destroys what was freed meanwhile. */
    ~InLoop();
    InLoop(const InLoop&) = delete;
    InLoop(InLoop&&) = delete;
    InLoop& operator=(const InLoop&) = delete;
    InLoop& operator=(InLoop&&) = delete;

  private:
    GANTRY_cpp_context& context;
};

/** Whether frames on the stack work on the context: one of its loops, or sd-bus in a callback. */
bool is_in_use(GANTRY_cpp_context& context) noexcept;

/** Takes an object with its manager off the bus and destroys it: at once, or, inside a callback of
 *  its context's connection, after that callback. */
void destroy_object(GANTRY_instance& instance) noexcept;

/** Stops the loops of a context that is in use, and has it destroyed when it is idle. */
void destroy_later(GANTRY_cpp_context& context) noexcept;

/** Destroys what was freed and is not in use any more. Returns whether that was the context. */
bool destroy_if_idle(GANTRY_cpp_context& context) noexcept;

/** Destroys the freed objects now, even inside a callback. For the destruction of the context. */
void destroy_freed_objects(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
