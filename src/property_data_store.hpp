/*
 * A property whose value is the key under which the platform's data store knows the object: each
 * time it is set, the key is registered, and the last one is removed with the object.
 */
#pragma once

#include "property.hpp"

#include <string>

namespace gantry
{

/** The class-independent core of set_key(). */
std::string set_key(std::string& stored, std::string& value, bool skip_signal, Object& object,
                    const Property<Object>& row, const char* class_name);

/** set() for such a property. Registers the key even if the value is the same. */
template <class Class>
std::string set_key(std::string& stored, std::string& value, bool skip_signal, Class& object,
                    const Property<Class>& row, const char* class_name)
{
    return set_key(stored, value, skip_signal, reinterpret_cast<Object&>(object), row_of(row),
                   class_name);
}

/** Called by the destructor: removes the key that the property holds. */
void remove_key(const std::string& stored);

} // namespace gantry
