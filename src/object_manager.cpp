/*
 * Object managers. Every object has one at its own path. The context holds the one added last;
 * before it holds the next, it gives the earlier one to the connection: as a floating slot that
 * stays registered until the connection goes, and keeps nothing alive. Only an object that is freed
 * by itself takes its object manager along; another at the same path has one of its own.
 */
#include "gantrycontext.hpp"

#include <systemd/sd-bus.h>

#include <cstring>
#include <utility>

namespace
{

using Manager = sdbusplus::server::manager::manager;

/** The holder is one slot pointer, and shows it to nobody. */
sd_bus_slot* slot_of(const Manager& manager)
{
    static_assert(sizeof(Manager) == sizeof(sd_bus_slot*));
    sd_bus_slot* slot = nullptr;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): it is the pointer that is copied
    std::memcpy(&slot, static_cast<const void*>(&manager), sizeof slot);
    return slot;
}

} // namespace

sd_bus_slot* gantry::add_object_manager(GANTRY_cpp_context& context, const char* path)
{
    auto added = std::make_unique<Manager>(context.bus, path);
    const std::unique_ptr<Manager> earlier{context.object_manager};
    context.object_manager = added.release();
    if (earlier != nullptr)
    {
        if (sd_bus_slot* slot = slot_of(*earlier); slot != nullptr)
        {
            sd_bus_slot_set_floating(slot, 1);
        }
    }
    return slot_of(*context.object_manager);
}

void gantry::remove_object_manager(GANTRY_cpp_context& context, sd_bus_slot* slot) noexcept
{
    if (slot == nullptr)
    {
        return;
    }
    if (context.object_manager != nullptr && slot_of(*context.object_manager) == slot)
    {
        delete std::exchange(context.object_manager, nullptr);
        return;
    }
    // Back from the connection, so that the reference dropped here is the last one.
    sd_bus_slot_ref(slot);
    sd_bus_slot_set_floating(slot, 0);
    sd_bus_slot_unref(slot);
}
