// An object manager at a path lets clients list everything below it in one call.
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/slot.hpp"

namespace sdbusplus
{
namespace server
{
namespace manager
{

/** Registered as long as it exists. A refusal by the connection is not an error. */
struct manager
{
    manager(bus::bus& b, const char* path)
    {
        sd_bus_slot* s = nullptr;
        b.getInterface()->sd_bus_add_object_manager(bus::details::bus_friend::get_busp(b), &s,
                                                    path);
        registration.reset(s);
    }

  private:
    slot_t registration;
};

} // namespace manager

using manager_t = manager::manager;

} // namespace server
} // namespace sdbusplus
