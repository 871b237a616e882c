/*
 * What the frame knows of an object: one record per object, which the host sees as an opaque
 * pointer, and one constant descriptor per interface, which says all that is needed to publish such
 * an object, find it, announce it and free it.
 */
#pragma once

#include "property.hpp"

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <cstdint>

namespace gantry
{
struct Descriptor;
} // namespace gantry

struct GANTRY_instance
{
    GANTRY_cpp_context* vctx;
    /** The host's callbacks for the interface. Not owned; may be null. */
    const void* table;
    /** A heap copy, owned. */
    char* path;
    /** The host's pointer for this object. Not owned. */
    void* user_private;
    /** The object, of its derived class, once it exists. */
    void* the_service = nullptr;

    /** The object's class. */
    const gantry::Descriptor* descriptor;
    /** The object manager that was added with the object, at its path. Not owned; null without one.
     */
    sd_bus_slot* manager = nullptr;

    /** The neighbours in the context's list of objects. Once the object was freed inside a
     * callback, `older` is its neighbour in the list of such objects. */
    GANTRY_instance* older = nullptr;
    GANTRY_instance* newer = nullptr;
    /** The index of the object's entry in the context's tracker when the entries were last moved.
     */
    std::uint32_t tracked = 0;
    /** Whether the object is in the context's list: from its publication until it is freed. */
    bool is_listed = false;
    /** What PendingChanges::mark() returned when the object was published; 0 once it was announced.
     */
    std::uint32_t mark = 0;

    /** Called when a client has written a property; null for none. */
    void (*written)(GANTRY_instance* instance, const char* property, void* data) = nullptr;
    void* written_data = nullptr;

    /** Called before a client reads the object; null for none. */
    void (*read)(GANTRY_instance* instance, void* data) = nullptr;
    void* read_data = nullptr;

    /** Whether the host made the object itself (own_object.cpp). */
    [[nodiscard]] bool is_own() const noexcept;
};

namespace gantry
{

struct Descriptor
{
    /** The interface name, which is also the service name of a context that has none. */
    const char* interface;
    /** The path of an object for which the host gives none. */
    const char* path;
    const sd_bus_vtable* vtable;
    /** Null for a class without properties. */
    const Properties* properties;

    /** Makes the object and joins it to its record, which it owns from then on. */
    void* (*create)(sdbusplus::bus_t& bus, GANTRY_instance* instance);
    /** Deletes an object of the class through its virtual destructor. */
    void (*delete_as_class)(void* object);
    /** The deleter with which objects of the class are tracked. Its address identifies the class,
     *  so no two classes share one. Null, as is `create`, for objects that the host makes. */
    void (*deleter)(void* object);
};

} // namespace gantry

inline bool GANTRY_instance::is_own() const noexcept
{
    return descriptor->deleter == nullptr;
}
