/*
 * What all properties share: the setter and the bus callbacks.
 *
 * A property is a data member with three virtual accessors. The frame works with pointers to the
 * accessors and a class called Object, which stands for each server class in turn. That rests on
 * what the C++ ABI of every Linux target fixes: a server class is a line of single inheritance with
 * its virtual table pointer first, so a pointer to a virtual member function is a table offset that
 * says nothing of its class. So the code for a property type exists once, not once a class.
 */
#pragma once

#include <systemd/sd-bus.h>

#include <sdbusplus/sdbus.hpp>
#include <sdbusplus/server/interface.hpp>
#include <string>
#include <type_traits>

namespace gantry
{

/** Stands for an object of any server class. Only ever pointed at. */
struct Object
{
};

template <class Type, class Class = Object>
using Getter = Type (Class::*)() const;

template <class Type, class Class = Object>
using Setter = Type (Class::*)(Type, bool);

template <class Type, class Class = Object>
using AnnouncingSetter = Type (Class::*)(Type);

/** How a new value goes to set(): numbers in a register, all else where it is. */
template <class Type>
using Passed = std::conditional_t<std::is_scalar_v<Type>, Type, Type&>;

/**
 * A property's setter: an equal value changes nothing; another one is stored, then announced under
 * the member name unless `skip_signal`. Gives the stored value. What the announcement throws is the
 * caller's, with the value stored.
 */
template <class Type>
Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal,
         sdbusplus::server::interface::interface& interface, const char* member);

/** set_and_announce() for a class already forgotten. Instantiated once for each type. */
template <class Type>
Type set_and_announce(Object& object, Setter<Type> setter, Type& value);

/**
 * A property's one-argument setter: the two-argument one with an announcement. For types whose
 * copies are more code than this call; a number is passed on in place.
 */
template <class Type, class Class>
Type set_and_announce(Class& object, Setter<Type, std::type_identity_t<Class>> setter, Type& value)
{
    return set_and_announce<Type>(reinterpret_cast<Object&>(object),
                                  reinterpret_cast<Setter<Type>>(setter), value);
}

/** A property's getter: a copy of the stored value. For the same types. */
template <class Type>
Type get(const Type& stored);

/** get_property() for a class already forgotten. Instantiated once for each property type. */
template <class Type>
int get_property(sd_bus_message* reply, const Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, Getter<Type> getter);

/** A property's get callback: appends what its getter gives to the reply under construction. */
template <class Type, class Class>
int get_property(sd_bus_message* reply, const Class& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, Getter<Type, std::type_identity_t<Class>> getter)
{
    return get_property<Type>(reply, reinterpret_cast<const Object&>(object), bus, error,
                              reinterpret_cast<Getter<Type>>(getter));
}

/** set_property() for a class already forgotten. */
template <class Type>
int set_property(sd_bus_message* value, Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, AnnouncingSetter<Type> setter);

/**
 * A writable property's set callback: reads a value and gives it to the one-argument setter. A
 * failed read leaves the property as it was, and the client gets the error.
 */
template <class Type, class Class>
int set_property(sd_bus_message* value, Class& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, AnnouncingSetter<Type, std::type_identity_t<Class>> setter)
{
    return set_property<Type>(value, reinterpret_cast<Object&>(object), bus, error,
                              reinterpret_cast<AnnouncingSetter<Type>>(setter));
}

} // namespace gantry
