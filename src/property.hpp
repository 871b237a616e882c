/*
 * The properties of a class as data: one constant row per property, and an index to find a row by
 * its member name. As sd-bus's own table begins with a start row, row 0 is the header, which stands
 * for the interface. Each row has its position, so that the header is found from any row. The index
 * is a hash table that the compiler makes from the rows: a look-up costs a hash of the name, one or
 * two probes and one comparison, a third of what a binary search costs among 93 rows.
 *
 * A property is a data member with three virtual accessors. The library uses pointers to the
 * accessors, and a class called Object instead of each server class. That relies on what the C++
 * ABI of every Linux target defines: a server class has only single inheritance and begins with its
 * virtual table pointer, so a pointer to a virtual member function is an offset into that table and
 * contains nothing of its class. So the code for a property type is compiled once, and not once per
 * class.
 */
#pragma once

#include "property_types.hpp"

#include <gantry/export.h>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sdbusplus/sdbus.hpp>
#include <sdbusplus/server/interface.hpp>
#include <string>
#include <string_view>
#include <type_traits>

namespace gantry
{

static_assert(sizeof(long) == 8, "D-Bus x and t are long and unsigned long");

/** A list of types. A type's position in it is its tag. gantrygen writes the one of the types that
 *  properties have (property_types.hpp). */
template <class... Types>
struct TypeList
{
    static_assert(sizeof...(Types) <= 256, "a tag is a byte");

    template <class Type>
    static consteval std::uint8_t tag()
    {
        static_assert((std::is_same_v<Type, Types> || ...), "no property has this type");
        std::uint8_t tag = 0;
        static_cast<void>(((std::is_same_v<Type, Types> || (++tag, false)) || ...));
        return tag;
    }

    /** `Template` with `First` and then all the types as arguments. */
    template <template <class...> class Template, class First>
    using Apply = Template<First, Types...>;
};

/** Stands for an object of any server class, with the members that each of them begins with. None
 *  is ever made. */
struct Object
{
    Object() = delete;

    const void* virtual_table;
    sdbusplus::server::interface_t server_interface;
    sdbusplus::SdBusInterface* bus_interface;
};
static_assert(sizeof(Object) == 2 * sizeof(void*) + sizeof(sdbusplus::server::interface_t),
              "a derived class's members would begin elsewhere");

template <class Type, class Class = Object>
using Getter = Type (Class::*)() const;

template <class Type, class Class = Object>
using Setter = Type (Class::*)(Type, bool);

template <class Type, class Class = Object>
using AnnouncingSetter = Type (Class::*)(Type);

/** A property's getter and two-argument setter, which the one-argument setter calls. */
template <class Type, class Class>
struct Accessors
{
    Getter<Type, Class> get;
    Setter<Type, Class> set;
};

/**
 * The accessors of a property of one of the types. A union of all of them, because a row must be a
 * constant expression and a cast of such a pointer isn't one; accessors_of() copies the bytes.
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

/** One property of a class: its member name, its type, whether a change of it is announced, and its
 *  accessors. Or the header of a class's rows, whose member name is the interface's name. */
template <class Class>
struct Property
{
    /** The header, with sd-bus's table of the class. */
    constexpr Property(const char* interface, const sd_bus_vtable* table) :
        member(interface), length(length_of(interface)), vtable(table)
    {
    }

    template <class Type>
    constexpr Property(std::uint8_t row, const char* member_name, Getter<Type, Class> get,
                       Setter<Type, Class> set, bool is_announced = true) :
        member(member_name),
        length(length_of(member_name)),
        type(PropertyTypes::tag<Type>()),
        announces(is_announced),
        place(row),
        accessors(Accessors<Type, Class>{get, set})
    {
    }

    /** The member name. */
    [[nodiscard]] constexpr std::string_view name() const
    {
        return {member, length};
    }

    /** The header of the class that has this row. */
    [[nodiscard]] const Property& header() const
    {
        return *(this - place);
    }

    const char* member;
    /** The length of the member name, for which D-Bus allows 255 bytes. */
    std::uint8_t length;
    /** The type's tag. */
    std::uint8_t type = 0;
    /** Whether a change is announced by PropertiesChanged. */
    bool announces = false;
    /** The row's position, which is 0 for the header. */
    std::uint8_t place = 0;
    union
    {
        PropertyTypes::Apply<AnyAccessors, Class> accessors;
        /** Only the header has it. */
        const sd_bus_vtable* vtable;
    };

  private:
    static constexpr std::uint8_t length_of(const char* name)
    {
        return static_cast<std::uint8_t>(std::char_traits<char>::length(name));
    }
};

/** A class's row as a row of Object. */
template <class Class>
const Property<Object>& row_of(const Property<Class>& row)
{
    return reinterpret_cast<const Property<Object>&>(row);
}

/** Whether an entry of sd-bus's table is of a property. */
constexpr bool is_property(const sd_bus_vtable& entry) noexcept
{
    return entry.type == _SD_BUS_VTABLE_PROPERTY || entry.type == _SD_BUS_VTABLE_WRITABLE_PROPERTY;
}

/** The class's entries in sd-bus's table: the entry of a row is at the row's position. The table
 * has methods and signals first, and then properties in the order of the rows. */
inline const sd_bus_vtable* property_entries(const Property<Object>& header)
{
    const auto* entry = header.vtable;
    while (!is_property(entry[1]))
    {
        ++entry;
    }
    return entry;
}

/** A row's accessors. Its type must be Type. */
template <class Type>
Accessors<Type, Object> accessors_of(const Property<Object>& property)
{
    Accessors<Type, Object> accessors;
    std::memcpy(static_cast<void*>(&accessors), &property.accessors, sizeof accessors);
    return accessors;
}

/**
 * The hash of a member name. It mixes the length with the first and the last eight bytes, in which
 * almost all names of one interface differ: a number in a name is at its front or its end.
 */
constexpr std::uint32_t name_hash(std::string_view name)
{
    constexpr std::size_t word_size = sizeof(std::uint64_t);
    const auto word = [](std::string_view bytes)
    {
        std::array<char, word_size> held{};
        std::copy(bytes.begin(), bytes.end(), held.begin());
        return std::bit_cast<std::uint64_t>(held);
    };

    const std::size_t size = name.size();
    // The copy of a whole word compiles to one load.
    const bool is_short = size < word_size;
    const std::uint64_t front = word(is_short ? name : name.substr(0, word_size));
    const std::uint64_t back = is_short ? front : word(name.substr(size - word_size, word_size));
    const std::uint64_t mixed = (front ^ std::rotl(back, 23) ^ size) * 0x9E37'79B9'7F4A'7C15U;
    return static_cast<std::uint32_t>(mixed ^ mixed >> 32U);
}

class WireSize;

/** Adds a property's value to the size of a message. */
using AddValue = void (*)(WireSize& size, const Property<Object>& row, const Object& object);

template <class Type>
GANTRY_HIDDEN void add_value(WireSize& size, const Property<Object>& row, const Object& object);

/** One function per property type, in the order of the tags; null for a number. */
template <class Types>
inline constexpr auto adders_of = []<class... Each>(TypeList<Each...> /*types*/)
{
    return std::array{[]() -> AddValue
                      {
                          if constexpr (!std::is_arithmetic_v<Each>)
                          {
                              return add_value<Each>;
                          }
                          return nullptr;
                      }()...};
}(Types{});

/** The rows of a class, whichever it is, and the index over them. */
class Properties
{
  public:
    /** A position is a byte, and 0 is the header's. */
    static constexpr std::size_t max_count = std::numeric_limits<std::uint8_t>::max();

    constexpr Properties(const void* rows, const std::uint8_t* index_slots,
                         std::uint32_t index_mask, const AddValue* adders) :
        add_by_type(adders), header(rows), slots(index_slots), mask(index_mask)
    {
    }

    /** The row whose member is exactly `name`, or null. */
    [[nodiscard]] GANTRY_API const Property<Object>* find(std::string_view name) const noexcept;

    /** The rows; the first one is the header. */
    [[nodiscard]] const Property<Object>* rows() const noexcept
    {
        return static_cast<const Property<Object>*>(header);
    }

    /** One function per property type of the program or library that has the class: their tags
     *  differ. */
    const AddValue* add_by_type;

  private:
    const void* header;
    const std::uint8_t* slots;
    std::uint32_t mask;
};

/** The index over rows: a hash table of their positions. At least half of the slots stay empty. */
template <class Class, std::size_t size>
class PropertyIndex
{
  public:
    constexpr explicit PropertyIndex(const Property<Class> (&rows)[size]) : header(rows)
    {
        static_assert(size - 1 <= Properties::max_count);
        for (const auto& row : rows)
        {
            std::uint32_t at = name_hash(row.name()) & mask;
            while (slots[at] != 0)
            {
                at = (at + 1) & mask;
            }
            slots[at] = row.place; // the header's 0 leaves the slot empty
        }
    }

    constexpr operator Properties() const
    {
        return {header, slots.data(), mask, adders_of<PropertyTypes>.data()};
    }

  private:
    static constexpr std::uint32_t mask = std::bit_ceil(static_cast<std::uint32_t>(2 * size)) - 1;

    const void* header;
    std::array<std::uint8_t, mask + 1> slots{};
};

} // namespace gantry
