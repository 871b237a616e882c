/*
 * Objects on the bus. An object of an interface is an instance of the interface's derived class,
 * joined to one record: the object owns the record, the record points back at the object, and the
 * host sees the record as an opaque pointer (instance.hpp).
 */
#pragma once

#include "instance.hpp"
#include "log.hpp"

#include <memory>

namespace gantry
{

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
