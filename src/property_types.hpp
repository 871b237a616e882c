/*
 * The types that properties have. Nine serve the inventory; the others are the composite forms of
 * the sample interface. What the frame does with a property exists once for each type of the list.
 */
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

namespace gantry
{

static_assert(sizeof(long) == 8, "D-Bus x and t are long and unsigned long");

/** A list of types. A type's place in it is its tag. */
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

    /** `Template` of all the types, behind an argument of its own. */
    template <template <class...> class Template, class First>
    using Apply = Template<First, Types...>;
};

using Triple = std::tuple<short, int, long>;

using PropertyTypes = TypeList<
    // the inventory
    bool, double, short, unsigned short, unsigned int, unsigned long, unsigned char, std::string,
    std::vector<std::string>,
    // the sample
    int, long, std::vector<unsigned char>, std::vector<std::vector<unsigned char>>,
    std::vector<std::set<std::vector<unsigned char>>>, std::map<unsigned short, std::string>,
    std::map<std::string, Triple>, std::map<std::string, std::variant<short, std::string, Triple>>,
    std::set<int>, std::set<std::tuple<unsigned char>>, std::set<Triple>, Triple,
    std::tuple<std::tuple<unsigned char, std::tuple<unsigned short, unsigned int>>, int,
               std::tuple<long, unsigned long>>,
    std::variant<unsigned char, Triple, std::string>>;

} // namespace gantry
