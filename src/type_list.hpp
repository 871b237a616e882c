/*
 * Lists of types. gantrygen writes the list of the types that properties have (property_types.hpp).
 */
#pragma once

#include <cstdint>
#include <type_traits>

namespace gantry
{

static_assert(sizeof(long) == 8, "D-Bus x and t are long and unsigned long");

/** A list of types. A type's position in it is its tag. */
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

} // namespace gantry
