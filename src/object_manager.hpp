/*
 * Object managers, which tell clients what objects there are (org.freedesktop.DBus.ObjectManager).
 *
 * Each object has one at its own path. Beside these a context has root managers, at paths that its
 * host chose: a root manager lists all objects below its path and sends InterfacesAdded and
 * InterfacesRemoved for them. sd-bus alone would do neither: it lists nothing that is below another
 * manager, and sends a signal only from the manager that is nearest to the object.
 *
 * While the bus daemon doesn't read, these signals wait (announcement.hpp). An object that is added
 * and freed meanwhile sends none, unless a client may know the object from a GetManagedObjects. All
 * interfaces that left a path are in one InterfacesRemoved, which is sent before InterfacesAdded of
 * an object that was added there since.
 */
#pragma once

#include <gantry/context.hpp>
#include <gantry/instance.h>

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <string_view>

namespace gantry
{

/** A root manager of a context. */
struct RootManager
{
    using Slot = std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)>;

    RootManager(GANTRY_cpp_context& its_context, const char* its_path) :
        context(its_context), path(its_path)
    {
    }

    GANTRY_cpp_context& context;
    std::string path;
    Slot manager{nullptr, sd_bus_slot_unref};
    Slot enumerator{nullptr, sd_bus_slot_unref};
};

/** Sends InterfacesAdded from the object's path and from each root manager above it, or has it
 *  wait. Throws what a getter throws, and SdBusError if a signal can't be sent. */
void announce_added(GANTRY_instance& object);

/** Sends InterfacesRemoved from the same paths, or has it wait. Logs what fails. */
void announce_removed(const GANTRY_instance& object) noexcept;

} // namespace gantry
