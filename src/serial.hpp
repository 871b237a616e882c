/*
 * Serials, which are what a host has as the handle of something that may end before the host lets
 * it go: they are looked up and never followed.
 */
#pragma once

#include <atomic>
#include <cstdint>

namespace gantry
{

/** The serial of a new entry of `entries`. No serial is used twice in the process, so that the
 *  handle of what has ended, or is another thread's, finds nothing. Where a pointer has 32 bits
 *  serials may come round, and those in use are left out. */
template <class Entries>
std::uintptr_t next_serial(const Entries& entries) noexcept
{
    static constinit std::atomic<std::uintptr_t> last{0};
    std::uintptr_t serial = 0;
    do
    {
        serial = last.fetch_add(1, std::memory_order_relaxed) + 1;
    } while (serial == 0 || entries.contains(serial));
    return serial;
}

/** The handle of a serial. */
template <class Handle>
Handle* handle_of(std::uintptr_t serial) noexcept
{
    // Nothing follows it. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<Handle*>(serial);
}

} // namespace gantry
