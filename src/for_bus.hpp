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

inline void repair(std::string& text)
{
    if (!is_utf8(text))
    {
        text = repaired_utf8(text);
    }
}

template <class Element>
void repair(std::vector<Element>& elements);
template <class Key, class Value>
void repair(std::map<Key, Value>& entries);
template <class... Members>
void repair(std::tuple<Members...>& members);
template <class... Alternatives>
void repair(std::variant<Alternatives...>& value);

/** A part of a value, which may have no text. */
template <class Type>
void repair_part(Type& value)
{
    if constexpr (holds_text<Type>)
    {
        repair(value);
    }
}

template <class Element>
void repair(std::vector<Element>& elements)
{
    for (auto& element : elements)
    {
        repair(element);
    }
}

// Two keys may become one. The first stays, as for a client that sends one key twice.
template <class Key, class Value>
void repair(std::map<Key, Value>& entries)
{
    std::map<Key, Value> result;
    while (!entries.empty())
    {
        auto entry = entries.extract(entries.begin());
        repair_part(entry.key());
        repair_part(entry.mapped());
        result.insert(std::move(entry));
    }
    entries = std::move(result);
}

template <class... Members>
void repair(std::tuple<Members...>& members)
{
    std::apply([](auto&... each) { (repair_part(each), ...); }, members);
}

// One without a value has nothing to repair; that it can't be sent is for the append to say.
template <class... Alternatives>
void repair(std::variant<Alternatives...>& value)
{
    if (!value.valueless_by_exception())
    {
        std::visit([](auto& held) { repair_part(held); }, value);
    }
}

/** The value as the bus takes it. */
template <class Type>
Type for_bus(Type value)
{
    repair_part(value);
    return value;
}

} // namespace gantry
