/*
 * Objects on the bus. An object of an interface is an instance of the interface's derived class,
 * joined to one record: the object owns the record, the record points back at the object, and the
 * host sees the record as an opaque pointer. One constant descriptor per interface has all that the
 * library needs to publish such an object, find it, announce it and free it.
 */
#pragma once

#include "log.hpp"
#include "property.hpp"

#include <gantry/context.hpp>
#include <gantry/instance.h>

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>

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

using Record = std::unique_ptr<GANTRY_instance, void (*)(GANTRY_instance*)>;

/** A record for an object. Throws std::bad_alloc. */
Record make_record(const Descriptor& descriptor, GANTRY_cpp_context* context, const void* table,
                   const char* path, void* user_private);

/** Removes an object from its context's list and announces that. */
void take_out(GANTRY_instance& instance) noexcept;

/** A descriptor's `create` for a class. */
template <class Class>
void* create(sdbusplus::bus_t& bus, GANTRY_instance* instance)
{
    auto* object = new Class(bus, instance->path);
    instance->the_service = object;
    object->inst = instance;
    return object;
}

/** A descriptor's `delete_as_class` for a class. */
template <class Class>
void delete_as_class(void* object)
{
    delete static_cast<Class*>(object);
}

/**
 * The body of each class's deleter; a null object is ignored. Since each deleter passes its own
 * descriptor, no linker that folds equal functions gives two classes the same address.
 */
GANTRY_API void delete_object(void* object, const Descriptor& descriptor);

/** The record of an object that has a `written` callback; null for any other object. */
GANTRY_API GANTRY_instance* find_listener(const void* object);

/** Releases an object's record with the path in it; null is ignored. */
GANTRY_API void release_record(GANTRY_instance* instance) noexcept;

/**
 * The body of each exported creating function: makes the record, requests the service name if the
 * context has none yet, adds an object manager at the path, makes the object and tracks it. Logs
 * for `place`; throws nothing that is a std::exception.
 */
GANTRY_API void instantiate(const Place& place, const Descriptor& descriptor,
                            GANTRY_cpp_context* context, const void* table, const char* path,
                            void* user_private);

} // namespace gantry

inline bool GANTRY_instance::is_own() const noexcept
{
    return descriptor->deleter == nullptr;
}
