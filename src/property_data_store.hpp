/*
 * A property whose value is the key under which the platform's data store knows the object: each
 * time it is set, the key is registered, and the last one is removed with the object.
 */
#pragma once

#include <sdbusplus/server/interface.hpp>
#include <string>

namespace gantry
{

/** set() for such a property. Registers the key even if the value is the same. */
std::string set_key(std::string& stored, std::string& value, bool skip_signal,
                    sdbusplus::server::interface_t& interface, const char* member,
                    const char* class_name);

/** Called by the destructor: removes the key that the property holds. */
void remove_key(const std::string& stored);

} // namespace gantry
