/*
 * How loops on a context end early, and with them a context that was freed meanwhile.
 *
 * A stop is a flag on the context. Each loop looks at it between two runs of the event loop, and
 * the outermost loop takes it down as it leaves. A context that is freed inside of a callback is
 * only marked, and stopped: frames below the callback still work on it, those of sd-bus and of the
 * object that was called. It is destroyed by the first of these:
 *
 *     one of our loops on the stack          the outermost of them, as it leaves
 *     the host runs the event loop itself    a source that the next run dispatches
 *     neither runs again                     the thread's next use of the library, or its exit
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/** A loop's presence on the stack, from its entry to however it ends. */
class InLoop
{
  public:
    explicit InLoop(GANTRY_cpp_context& entered) noexcept;
    /** The outermost takes the stop down, and destroys a context that was freed meanwhile. */
    ~InLoop();
    InLoop(const InLoop&) = delete;
    InLoop(InLoop&&) = delete;
    InLoop& operator=(const InLoop&) = delete;
    InLoop& operator=(InLoop&&) = delete;

  private:
    GANTRY_cpp_context& context;
};

/** Whether frames on the stack work on the context: a loop of ours, or sd-bus in a callback. */
bool is_in_use(const GANTRY_cpp_context& context) noexcept;

/** Marks a context in use as freed, and sees to it that it goes. */
void free_later(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
