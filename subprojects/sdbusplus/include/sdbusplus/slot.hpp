// A slot keeps one registration on a connection alive: an object manager, a match. No larger than
// the pointer that sd-bus hands out, and it may hold none, as when the registration failed.
#pragma once

#include "sdbusplus/sdbus.hpp"

#include <memory>

namespace sdbusplus
{
namespace slot
{

struct SlotDeleter
{
    void operator()(sd_bus_slot* slot) const
    {
        sdbus_impl.sd_bus_slot_unref(slot);
    }
};

using slot = std::unique_ptr<sd_bus_slot, SlotDeleter>;

} // namespace slot

using slot_t = slot::slot;

} // namespace sdbusplus
