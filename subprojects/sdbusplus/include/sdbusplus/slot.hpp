// A slot keeps one registration on a connection alive, of an object manager or a match. It is as
// large as sd-bus's pointer, and empty if the registration failed.
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
