/*
 * Serials. A host gets one, cast to a pointer, as the handle of something that may end while the
 * host still has the handle. A handle is looked up and never dereferenced.
 */
#pragma once

#include <atomic>
#include <cstdint>

namespace gantry
{

/** The serial of a new entry of `entries`. No serial is used twice in the process, so the handle of
 *  something that has ended, or belongs to another thread, finds nothing. Where a pointer has 32
 *  bits, serials may wrap around; those in `entries` are then skipped. */
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
    // Nothing dereferences it. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<Handle*>(serial);
}

} // namespace gantry
