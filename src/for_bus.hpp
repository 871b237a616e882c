/*
 * A value on its way to the bus: the same value with every text in it made UTF-8. A type without
 * text passes through untouched, and valid text pays for the check alone.
 */
#pragma once

#include "utf8.hpp"

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace gantry
{

template <class Type>
inline constexpr bool holds_text = false;
template <>
inline constexpr bool holds_text<std::string> = true;
template <class Element>
inline constexpr bool holds_text<std::vector<Element>> = holds_text<Element>;
template <class Element>
inline constexpr bool holds_text<std::set<Element>> = holds_text<Element>;
template <class Key, class Value>
inline constexpr bool holds_text<std::map<Key, Value>> = holds_text<Key> || holds_text<Value>;
template <class... Members>
inline constexpr bool holds_text<std::tuple<Members...>> = (holds_text<Members> || ...);
template <class... Alternatives>
inline constexpr bool holds_text<std::variant<Alternatives...>> = (holds_text<Alternatives> || ...);

inline std::string repaired(std::string text)
{
    return is_utf8(text) ? std::move(text) : repaired_utf8(text);
}

template <class Element>
std::vector<Element> repaired(std::vector<Element> elements);
template <class Key, class Value>
std::map<Key, Value> repaired(std::map<Key, Value> entries);
template <class... Members>
std::tuple<Members...> repaired(std::tuple<Members...> members);
template <class... Alternatives>
std::variant<Alternatives...> repaired(std::variant<Alternatives...> value);

/** The value as the bus takes it. */
template <class Type>
Type for_bus(Type value)
{
    if constexpr (holds_text<Type>)
    {
        return repaired(std::move(value));
    }
    else
    {
        return value;
    }
}

template <class Element>
std::vector<Element> repaired(std::vector<Element> elements)
{
    for (auto& element : elements)
    {
        element = for_bus(std::move(element));
    }
    return elements;
}

// Two keys may become one. The first stays, as for a client that sends one key twice.
template <class Key, class Value>
std::map<Key, Value> repaired(std::map<Key, Value> entries)
{
    std::map<Key, Value> result;
    while (!entries.empty())
    {
        auto entry = entries.extract(entries.begin());
        entry.key() = for_bus(std::move(entry.key()));
        entry.mapped() = for_bus(std::move(entry.mapped()));
        result.insert(std::move(entry));
    }
    return result;
}

template <class... Members>
std::tuple<Members...> repaired(std::tuple<Members...> members)
{
    std::apply([](auto&... each) { ((each = for_bus(std::move(each))), ...); }, members);
    return members;
}

// One without a value has nothing to repair; that it can't be sent is for the append to say.
template <class... Alternatives>
std::variant<Alternatives...> repaired(std::variant<Alternatives...> value)
{
    if (!value.valueless_by_exception())
    {
        std::visit([](auto& held) { held = for_bus(std::move(held)); }, value);
    }
    return value;
}

} // namespace gantry
