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

#include <type_traits>

/** Returns the object of an instance of that interface; null if the instance is null or of another
 *  interface. */
GANTRY_API void* GANTRY_cpp_instance_get_object(GANTRY_instance* instance, const char* interface);

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

} // namespace gantry
