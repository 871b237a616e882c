/*
 * From an instance to its object, which a host in C++ handles as its generated class:
 *
 *     #include <com/orvane/velmar/system/NicPort/gantry_server.hpp>
 *
 *     using GANTRY_com_orvane_velmar_system_NicPort::NicPort;
 *     if (auto* port = gantry::object<NicPort>(instance))
 *     {
 *         port->linkStatus(1);
 *     }
 */
#pragma once

#include <gantry/instance.h>

#include <systemd/sd-bus.h>

#include <memory>
#include <type_traits>

/** Returns the object of an instance of that interface; null if the instance is null or of another
 *  interface. */
GANTRY_API void* GANTRY_cpp_instance_get_object(GANTRY_instance* instance, const char* interface);

/** Called by gantry::publish() and Published. */
GANTRY_API GANTRY_instance* GANTRY_cpp_publish(GANTRY_cpp_context* context, void* object,
                                               const char* interface, const sd_bus_vtable* vtable);
GANTRY_API void GANTRY_cpp_unpublish(GANTRY_instance* instance) noexcept;

namespace gantry
{

/**
 * Returns the object of `instance`, which is valid as long as the instance; null if the instance is
 * null or of another class. Class is a class of a `gantry_server.hpp`.
 */
template <class Class>
Class* object(GANTRY_instance* instance)
{
    // Classes without `inst` may have the interface's name too, but the library makes no objects of
    // them.
    static_assert(std::is_same_v<decltype(&Class::inst), GANTRY_instance * Class::*>);
    return static_cast<Class*>(GANTRY_cpp_instance_get_object(instance, Class::interface));
}

struct Unpublish
{
    void operator()(GANTRY_instance* instance) const noexcept
    {
        GANTRY_cpp_unpublish(instance);
    }
};

/**
 * Keeps an object that the host made in the context's list of objects. Its destruction removes the
 * object from the list and sends InterfacesRemoved. It must be destroyed before the object, so it
 * can be a member of the object's class; it may be destroyed after the context. get() is for
 * GANTRY_instance_announce_added and others; the instance is valid as long as the context. The
 * functions of <gantry/property.h> find no property of it, and gantry::object no object.
 */
using Published = std::unique_ptr<GANTRY_instance, Unpublish>;

/**
 * Adds an object that the host made to the context's list: GANTRY_instance_find finds it, and
 * GANTRY_instance_announce_added sends InterfacesAdded for it. No signal is sent at once. Class is
 * the class of a `server.hpp` that the object's class is derived from. A null context means the
 * calling thread's. Throws SdBusError: EEXIST if the list has that interface at that path, ENOTCONN
 * without a context.
 */
template <class Class>
[[nodiscard]] Published publish(GANTRY_cpp_context* context, std::type_identity_t<Class>& object)
{
    return Published(GANTRY_cpp_publish(context, &object, Class::interface, Class::_vtable));
}

} // namespace gantry
