/*
 * What the frame knows of one interface of the catalogue: one constant descriptor, from which it
 * puts objects on the bus and takes them off again.
 */
#pragma once

#include "instance.hpp"
#include "log.hpp"
#include "properties.hpp"

#include <systemd/sd-bus.h>

#include <cstddef>

namespace gantry
{

struct Descriptor
{
    /** The interface name, which is also the service name of a context that has none. */
    const char* interface;
    /** The path of an object that is given none. */
    const char* path;
    const sd_bus_vtable* vtable;
    /** Null, as when left out, for a class without properties. */
    const Properties* properties = nullptr;

    /** Makes the object and joins it to its record, which it owns from then on. */
    void* (*create)(sdbusplus::bus::bus& bus, GANTRY_instance* instance);
    /** The object's record. */
    GANTRY_instance* (*instance_of)(const void* object);
    /** Deletes the object through its virtual destructor. */
    void (*remove)(void* object);
    /** The deleter under which the object is tracked: the class's tag, so never that of two. */
    void (*destroy)(void* object);
};

/** What a descriptor's `create` is for a class. */
template <class Class>
void* create(sdbusplus::bus::bus& bus, GANTRY_instance* instance)
{
    auto* object = new Class(bus, instance->path);
    instance->the_service = object;
    object->inst = instance;
    return object;
}

/** What a descriptor's `instance_of` is for a class. */
template <class Class>
GANTRY_instance* instance_of(const void* object)
{
    return static_cast<const Class*>(object)->inst;
}

/** What a descriptor's `remove` is for a class. */
template <class Class>
void remove(void* object)
{
    delete static_cast<Class*>(object);
}

/**
 * What each class's deleter does; a null object is nothing to do. The descriptor makes the code
 * of each deleter its own, so that no linker that folds equal functions gives two classes one tag.
 */
void destroy(void* object, const Descriptor& descriptor);

/**
 * Puts one object on the bus: record, service name, object manager, object, tracker. Logs for
 * `place`, throws nothing that is a std::exception.
 */
void instantiate(const Place& place, const Descriptor& descriptor, GANTRY_cpp_context* context,
                 const void* table, const char* path, void* user_private);

} // namespace gantry
