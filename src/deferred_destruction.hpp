/*
 * What a host frees while frames on the stack still work on it, and what is therefore destroyed
 * only after they have returned.
 *
 * Inside a callback of the connection, sd-bus and the called object are on the stack; inside a
 * dispatch loop, the loop is. An object that is freed in a callback, or a context that is freed in
 * either, is only noted in the context, and destroyed by the first of these:
 *
 *     an event source, which sd-event dispatches before the connection's, so that no message
 *     reaches an object that was freed
 *     the outermost dispatch loop of the context, when it is entered and when it ends
 *     for an object the destruction of its context, for a context the thread's next use of the
 *     library or its exit
 *
 * A freed context also stops its loops.
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/** An object's place in its context's list of freed objects. */
struct FreedObject
{
    FreedObject* next;
    void (*destroy)(FreedObject& object);
};

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

/** Destroys an object once no callback of its context's connection is running. */
void destroy_later(GANTRY_cpp_context& context, FreedObject& object) noexcept;

/** Stops a context's loops, and calls `destroy` for it once it is not in use any more. */
void destroy_later(GANTRY_cpp_context& context,
                   void (*destroy)(GANTRY_cpp_context* context)) noexcept;

/** Destroys the freed objects now, even inside a callback. For the destruction of the context. */
void destroy_freed_objects(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
