/*
 * The record that joins a published object to its host. The object owns it and points back at it;
 * a host sees it as an opaque pointer.
 */
#pragma once

#include <gantry/instance.h>

#include <systemd/sd-bus.h>

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
    void* the_service;

    /** The object's class. */
    const gantry::Descriptor* descriptor = nullptr;
    /** The object manager at the path that came with the object. Not owned; null without one. */
    sd_bus_slot* manager = nullptr;
    /** Once freed inside a callback: the next of the objects that wait for it to return. */
    GANTRY_instance* next_leaving = nullptr;
};

namespace gantry
{

/** Releases a record and the path in it; null is nothing to do. */
void release(GANTRY_instance* instance) noexcept;

struct Release
{
    void operator()(GANTRY_instance* instance) const noexcept
    {
        release(instance);
    }
};

using InstancePointer = std::unique_ptr<GANTRY_instance, Release>;

/** A record for an object that is about to be published. Throws std::bad_alloc. */
InstancePointer make_instance(GANTRY_cpp_context* context, const void* table, const char* path,
                              void* user_private);

} // namespace gantry
