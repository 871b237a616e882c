/*
 * What all properties share: the setter, the bus callbacks, and rows that tell a property's
 * accessors without its class.
 *
 * A property is a data member with three virtual accessors. The frame works with pointers to the
 * accessors and a class called Object, which stands for each server class in turn. That rests on
 * what the C++ ABI of every Linux target fixes: a server class is a line of single inheritance with
 * its virtual table pointer first, so a pointer to a virtual member function is a table offset that
 * says nothing of its class. So the code for a property type exists once, not once a class.
 */
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sdbusplus/sdbus.hpp>
#include <sdbusplus/server/interface.hpp>
#include <string>
#include <type_traits>
#include <vector>

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

/** The two accessors of a property that do the work: the third calls the second. */
template <class Type, class Class>
struct Accessors
{
    Getter<Type, Class> get;
    Setter<Type, Class> set;
};

/**
 * The accessors of a property of any one of the types. A union of all of them, because a row must
 * be a constant and a cast of such a pointer isn't one; whoever knows the type reads the bytes.
 */
template <class Class, class Type, class... Others>
union AnyAccessors
{
    constexpr explicit AnyAccessors(Accessors<Type, Class> accessors) : first(accessors)
    {
    }
    template <class Other>
    constexpr explicit AnyAccessors(Accessors<Other, Class> accessors) : others(accessors)
    {
    }

    Accessors<Type, Class> first;
    AnyAccessors<Class, Others...> others;
};

template <class Class, class Type>
union AnyAccessors<Class, Type>
{
    constexpr explicit AnyAccessors(Accessors<Type, Class> accessors) : first(accessors)
    {
    }

    Accessors<Type, Class> first;
};

/** The types that properties have. A type's place in the list is its tag in a row. */
template <class... Types>
struct TypeList
{
    template <class Type>
    static consteval std::uint8_t tag()
    {
        static_assert((std::is_same_v<Type, Types> || ...), "no property has this type");
        std::uint8_t tag = 0;
        static_cast<void>(((std::is_same_v<Type, Types> || (++tag, false)) || ...));
        return tag;
    }

    template <class Class>
    using Any = AnyAccessors<Class, Types...>;
};

using PropertyTypes = TypeList<bool, double, short, std::string, std::vector<std::string>,
                               unsigned short, unsigned int, unsigned long, unsigned char>;

static_assert(sizeof(long) == 8, "D-Bus x and t are long and unsigned long");

/** One property of a class: its member name, type and accessors. */
template <class Class>
struct Property
{
    template <class Type>
    constexpr Property(const char* member_name, Getter<Type, Class> get, Setter<Type, Class> set) :
        member(member_name),
        length(static_cast<std::uint8_t>(std::char_traits<char>::length(member_name))),
        type(PropertyTypes::tag<Type>()),
        accessors(Accessors<Type, Class>{get, set})
    {
    }

    const char* member;
    /** Of the member name: D-Bus allows 255 bytes. */
    std::uint8_t length;
    std::uint8_t type;
    PropertyTypes::Any<Class> accessors;
};

/** A row's accessors, for one who has looked at its type. */
template <class Type>
Accessors<Type, Object> accessors_of(const Property<Object>& property)
{
    Accessors<Type, Object> accessors;
    std::memcpy(static_cast<void*>(&accessors), &property.accessors, sizeof accessors);
    return accessors;
}

} // namespace gantry
