// An object manager at a path of a connection, as long as this holder exists.
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/slot.hpp"

namespace sdbusplus
{
namespace server
{
namespace manager
{

struct manager
{
    /** If the connection refuses, there is no object manager. */
    manager(bus_t& b, const char* path) : slot(added(b, path))
    {
    }

  private:
    static sd_bus_slot* added(bus_t& b, const char* path)
    {
        sd_bus_slot* slot = nullptr;
        sd_bus_add_object_manager(bus::details::bus_friend::get_busp(b), &slot, path);
        return slot;
    }

    slot_t slot;
};

} // namespace manager

using manager_t = manager::manager;

} // namespace server
} // namespace sdbusplus
