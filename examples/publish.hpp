/*
 * Publishes an object and gives it to C++ code. The creating functions are for C and return
 * nothing; an object that they made is the last that the context tracks.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>

/** The new object, owned by the context; null when the log tells of a failure. `Table` is void for
 *  an interface without methods. */
template <class Class, class Table>
Class* publish(GANTRY_cpp_context& context,
               void (*create)(GANTRY_cpp_context*, const Table*, const char*, void*),
               const char* path = nullptr, const std::type_identity_t<Table>* table = nullptr,
               void* user_private = nullptr)
{
    const auto before = context.tracker.size();
    create(&context, table, path, user_private);
    return context.tracker.size() > before ? static_cast<Class*>(context.tracker.back().object)
                                           : nullptr;
}

/** The object path of the device `name` below `prefix`: D-Bus allows few characters in one. */
inline std::string path_of(const char* prefix, const std::string& name)
{
    char* path = nullptr;
    if (sd_bus_path_encode(prefix, name.c_str(), &path) < 0)
    {
        throw std::bad_alloc();
    }
    const std::unique_ptr<char, decltype(&std::free)> owner{path, std::free};
    return path;
}
