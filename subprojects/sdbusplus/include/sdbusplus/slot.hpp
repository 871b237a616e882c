// A slot is a registration on a connection, such as a match, which lasts as long as its holder.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <utility>

namespace sdbusplus
{
namespace slot
{

using slotp_t = sd_bus_slot*;

namespace details
{

struct SlotDeleter
{
    void operator()(sd_bus_slot* s) const
    {
        sd_bus_slot_unref(s);
    }
};

} // namespace details

/** Movable. Empty if it was made without a slot. */
struct slot
{
    /** Takes over the caller's reference and sets the caller's pointer to null. */
    explicit slot(slotp_t&& s = nullptr) : held(std::exchange(s, nullptr))
    {
    }

    slot& operator=(slotp_t&& s)
    {
        held.reset(std::exchange(s, nullptr));
        return *this;
    }

    /** Transfers the reference to the caller. */
    slotp_t release()
    {
        return held.release();
    }

    explicit operator bool() const
    {
        return held != nullptr;
    }

  private:
    std::unique_ptr<sd_bus_slot, details::SlotDeleter> held;
};

} // namespace slot

using slot_t = slot::slot;

} // namespace sdbusplus
