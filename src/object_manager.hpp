/*
 * Object managers, which tell clients what objects there are (org.freedesktop.DBus.ObjectManager).
 *
 * Each object has one at its own path. Beside these a context has root managers, at paths that its
 * host chose: a root manager lists all objects below its path and sends InterfacesAdded and
 * InterfacesRemoved for them. sd-bus alone would do neither: it lists nothing that is below another
 * manager, and sends a signal only from the manager that is nearest to the object.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <vector>

namespace gantry
{

/** What a manager tells of an object: where it is, and one interface with its properties. */
struct Published
{
    const char* path;
    const char* interface;
    const sd_bus_vtable* vtable;
    /** What the callbacks of the vtable take. */
    void* object;
};

/**
 * Adds the manager of an object at `path` and returns its slot; null if the connection refuses it.
 * The context holds the manager that was added last. The one before becomes the connection's: a
 * floating slot stays registered until the connection is closed, and keeps nothing alive.
 */
sd_bus_slot* add_object_manager(GANTRY_cpp_context& context, const char* path);

/** Takes the manager that came with an object off the bus; null is ignored. */
void remove_object_manager(GANTRY_cpp_context& context, sd_bus_slot* slot) noexcept;

/**
 * Adds a root manager at a valid path, unless there is one. `list_paths` gives the paths of all
 * objects of the context. Throws SdBusError if the connection refuses it.
 */
void add_root_manager(GANTRY_cpp_context& context, const char* path,
                      std::vector<const char*> (*list_paths)(const GANTRY_cpp_context& context));

/** Takes all root managers of the context off the bus. */
void remove_root_managers(GANTRY_cpp_context& context) noexcept;

/** Sends InterfacesAdded from the object's path and from each root above it. Throws what a getter
 *  throws, and SdBusError if a signal can't be sent. */
void announce_added(GANTRY_cpp_context& context, const Published& object);

/** Sends InterfacesRemoved from the same paths, and logs what fails. */
void announce_removed(GANTRY_cpp_context& context, const Published& object) noexcept;

} // namespace gantry
