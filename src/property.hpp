/*
 * The properties of a class as data: a constant row each, and an index to find a row by its member
 * name. The index is a hash table that the compiler makes from the rows. One look-up costs a hash
 * of the name, a probe or two, and one comparison, however many properties there are, and allocates
 * nothing.
 *
 * A property is a data member with three virtual accessors. The frame works with pointers to the
 * accessors and with a class called Object in place of each server class. That relies on what the
 * C++ ABI of every Linux target fixes: a server class is a line of single inheritance with its
 * virtual table pointer first, so a pointer to a virtual member function is an offset into that
 * table and contains nothing of its class. So the code for a property type is compiled once, not
 * once for each class.
 */
#pragma once

#include "property_types.hpp"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace gantry
{

/** Stands for an object of any server class. Used only through pointers. */
struct Object
{
};

template <class Type, class Class = Object>
using Getter = Type (Class::*)() const;

template <class Type, class Class = Object>
using Setter = Type (Class::*)(Type, bool);

template <class Type, class Class = Object>
using AnnouncingSetter = Type (Class::*)(Type);

/** The accessors of a property without the one-argument setter, which calls the other one. */
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
 *  accessors. */
template <class Class>
struct Property
{
    template <class Type>
    constexpr Property(const char* member_name, Getter<Type, Class> get, Setter<Type, Class> set,
                       bool is_announced = true) :
        member(member_name),
        length(static_cast<std::uint8_t>(std::char_traits<char>::length(member_name))),
        type(PropertyTypes::tag<Type>()),
        announces(is_announced),
        accessors(Accessors<Type, Class>{get, set})
    {
    }

    const char* member;
    /** Of the member name: D-Bus allows 255 bytes. */
    std::uint8_t length;
    /** The type's tag. */
    std::uint8_t type;
    /** Whether sd-bus has a PropertiesChanged to send for it. */
    bool announces;
    PropertyTypes::Apply<AnyAccessors, Class> accessors;
};

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
    const auto word = [](const char* at, std::size_t length)
    {
        std::uint64_t value = 0;
        if (std::is_constant_evaluated() || length < word_size)
        {
            for (std::size_t index = length; index-- > 0;)
            {
                value = value << 8U | static_cast<unsigned char>(at[index]);
            }
        }
        else
        {
            // Compiles to one load, whose bytes are in the order of the loop above on a
            // little-endian machine only.
            std::memcpy(&value, at, word_size);
            if constexpr (std::endian::native == std::endian::big)
            {
                value = __builtin_bswap64(value);
            }
        }
        return value;
    };

    const std::size_t length = name.size();
    const std::size_t sampled = length < word_size ? length : word_size;
    const std::uint64_t front = word(name.data(), sampled);
    const std::uint64_t back = word(name.data() + (length - sampled), sampled);
    std::uint64_t mixed = (front ^ std::rotl(back, 23) ^ length) * 0x9E37'79B9'7F4A'7C15U;
    mixed ^= mixed >> 32U;
    return static_cast<std::uint32_t>(mixed);
}

/** The properties of some class, and the index over them. */
class Properties
{
  public:
    constexpr Properties(const void* rows, const std::uint8_t* index_slots,
                         std::uint32_t index_mask) :
        first(rows), slots(index_slots), mask(index_mask)
    {
    }

    /** The row whose member is exactly `name`, or null. */
    [[nodiscard]] const Property<Object>* find(std::string_view name) const noexcept;

    /** The place of one of these rows, below 255. */
    [[nodiscard]] std::size_t place_of(const Property<Object>& row) const noexcept
    {
        return static_cast<std::size_t>(&row - static_cast<const Property<Object>*>(first));
    }

  private:
    const void* first;
    const std::uint8_t* slots;
    std::uint32_t mask;
};

/** The index over the `count` rows of Class: at least half of its slots stay empty. */
template <class Class, std::size_t count>
class PropertyIndex
{
  public:
    constexpr explicit PropertyIndex(const Property<Class> (&rows)[count]) : first(rows)
    {
        static_assert(count < 255, "a slot is a byte, and 0 says empty");
        for (std::size_t row = 0; row < count; ++row)
        {
            std::uint32_t at = name_hash(rows[row].member) & mask;
            while (slots[at] != 0)
            {
                at = (at + 1) & mask;
            }
            slots[at] = static_cast<std::uint8_t>(row + 1);
        }
    }

    constexpr operator Properties() const
    {
        return {first, slots.data(), mask};
    }

  private:
    static constexpr std::uint32_t mask = std::bit_ceil(static_cast<std::uint32_t>(2 * count)) - 1;

    const void* first;
    std::array<std::uint8_t, mask + 1> slots{};
};

} // namespace gantry
