/*
 * What the rest of the library must do for changes that wait (announcement.hpp): send all of them
 * before a signal of the host, send those of an object before a reply of it, and drop those of an
 * object that is being destroyed.
 */
#pragma once

#include <gantry/export.h>

#include <cstddef>

namespace gantry
{

struct Object;

/** How many changes of the thread's context wait, and one more while its host holds changes. The
 *  model puts it at a fixed offset from the thread pointer, so that a reply and a pass of a loop
 *  check it with one load. */
[[gnu::tls_model(
    "initial-exec")]] extern GANTRY_API constinit thread_local std::size_t waiting_changes;

GANTRY_API void send_waiting_changes_of(const Object& object);
GANTRY_API void send_all_waiting_changes() noexcept;
GANTRY_API void forget_waiting_changes_of(const Object& object) noexcept;

/** Called before a signal of the host, which may be about objects other than its sender: sends all
 *  that waits. Logs what a getter throws. */
inline void send_all_changes() noexcept
{
    if (waiting_changes != 0)
    {
        send_all_waiting_changes();
    }
}

/** Called before a reply of an object: sends what waits for the object. Throws what a getter
 *  throws. */
template <class Class>
void send_changes_of(const Class& object)
{
    if (waiting_changes != 0)
    {
        send_waiting_changes_of(reinterpret_cast<const Object&>(object));
    }
}

/** Drops what waits for an object that is being destroyed. */
template <class Class>
void forget_changes_of(const Class& object) noexcept
{
    if (waiting_changes != 0)
    {
        forget_waiting_changes_of(reinterpret_cast<const Object&>(object));
    }
}

} // namespace gantry
