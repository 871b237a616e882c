/*
 * The accessors and bus callbacks of properties, as generated code calls them. Each has a core that
 * is instantiated once per property type, and not once per class and type; property.hpp says why
 * that works. Where the class matters, a template around the core casts it away. The cores are
 * declared hidden, since -fvisibility hides only definitions; a callback of the same program or
 * library then jumps to its core directly.
 */
#pragma once

#include "property.hpp"
#include "served_call.hpp"

#include <gantry/export.h>

#include <systemd/sd-bus.h>

#include <sdbusplus/sdbus.hpp>
#include <type_traits>

namespace gantry
{

/** How set() gets a new value: a number by value, everything else by reference. */
template <class Type>
using Passed = std::conditional_t<std::is_scalar_v<Type>, Type, Type&>;

/** The class-independent core of set(). */
template <class Type>
GANTRY_HIDDEN Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal,
                       Object& object, const Property<Object>& row);

/**
 * The body of a property's two-argument setter: an equal value changes nothing; another one is
 * stored, and then announced unless `skip_signal`. Returns the stored value. Throws SdBusError with
 * EMSGSIZE, and stores nothing, if no message can hold the value. Throws what a getter throws that
 * the announcement runs; the value is stored then.
 */
template <class Type, class Class>
Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal, Class& object,
         const Property<Class>& row)
{
    static_assert(std::is_polymorphic_v<Class> && sizeof(Class) > sizeof(Object));
    return set<Type>(stored, value, skip_signal, reinterpret_cast<Object&>(object), row_of(row));
}

/** The class-independent core of set_and_announce(). */
template <class Type>
GANTRY_HIDDEN Type set_and_announce(Object& object, Setter<Type> setter, Type& value);

/**
 * The body of a property's one-argument setter, which calls the two-argument one. For types whose
 * copies take more code than this call; for a number, generated code calls the setter itself.
 */
template <class Type, class Class>
Type set_and_announce(Class& object, Setter<Type, std::type_identity_t<Class>> setter, Type& value)
{
    return set_and_announce<Type>(reinterpret_cast<Object&>(object),
                                  reinterpret_cast<Setter<Type>>(setter), value);
}

/** The body of a property's getter, for the same types: a copy of the stored value. */
template <class Type>
GANTRY_HIDDEN Type copy_of(const Type& stored);

/** Sets the property of `row`, which must be of that type, from a value of it. */
template <class Type>
GANTRY_HIDDEN void set_as(const Property<Object>& row, Object& object, const void* value,
                          bool skip_signal);

/** The class-independent core of get_property(). */
template <class Type>
GANTRY_HIDDEN int get_property(sd_bus* bus, Getter<Type> getter,
                               sdbusplus::SdBusInterface* bus_interface, sd_bus_message* reply,
                               const Object& object, sd_bus_error* error);

/**
 * The body of a property's get callback: appends what the getter returns to the reply that sd-bus
 * is making, and returns 1, or a negative errno if that fails. The parameters keep the order that
 * the callback got them in, so no register moves.
 */
template <class Type, class Class>
int get_property(sd_bus* bus, Getter<Type, std::type_identity_t<Class>> getter,
                 sdbusplus::SdBusInterface* bus_interface, sd_bus_message* reply,
                 const Class& object, sd_bus_error* error)
{
    return get_property<Type>(bus, reinterpret_cast<Getter<Type>>(getter), bus_interface, reply,
                              reinterpret_cast<const Object&>(object), error);
}

/** The class-independent core of set_property(). */
template <class Type>
GANTRY_HIDDEN int set_property(sd_bus_message* value, Object& object,
                               sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                               const WrittenProperty& property, AnnouncingSetter<Type> setter);

/**
 * The body of a writable property's set callback: reads a value and passes it to the one-argument
 * setter. If the read fails, the property keeps its value and the client gets the error. The
 * object's `written` callback runs before the change is announced, and may refuse it.
 */
template <class Type, class Class>
int set_property(sd_bus_message* value, Class& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, const WrittenProperty& property,
                 AnnouncingSetter<Type, std::type_identity_t<Class>> setter)
{
    return set_property<Type>(value, reinterpret_cast<Object&>(object), bus, error, property,
                              reinterpret_cast<AnnouncingSetter<Type>>(setter));
}

/** The class-independent core of set_key(). */
GANTRY_API std::string set_key(std::string& stored, std::string& value, bool skip_signal,
                               Object& object, const Property<Object>& row, const char* class_name);

/** set() for the property that is the key under which the platform's data store knows the object.
 *  Registers the key even if the value is the same. */
template <class Class>
std::string set_key(std::string& stored, std::string& value, bool skip_signal, Class& object,
                    const Property<Class>& row, const char* class_name)
{
    return set_key(stored, value, skip_signal, reinterpret_cast<Object&>(object), row_of(row),
                   class_name);
}

/** Called by the destructor: removes the key that such a property holds. */
GANTRY_API void remove_key(const std::string& stored);

} // namespace gantry
