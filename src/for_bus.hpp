/*
 * Makes values fit for the bus: repairs every text in a value to UTF-8, and refuses a value that no
 * message can hold. A type without text needs no repair, and valid text costs only the check.
 *
 * D-Bus strings are UTF-8. sd-bus doesn't append any other string, and sending the incomplete
 * message closes the connection. Inventory text comes from EEPROMs and may have any bytes, so a
 * text stays as the host stored it and is repaired when it is sent.
 */
#pragma once

#include "wire_size.hpp"

#include <gantry/export.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace gantry
{

/** Whether sd-bus accepts the text: UTF-8 without surrogates and noncharacters. */
GANTRY_API bool is_utf8(std::string_view text) noexcept;

/** The text with each invalid sequence replaced by U+FFFD. */
GANTRY_API std::string repaired_utf8(std::string_view text);

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
template <class Element>
void repair(std::set<Element>& elements);
template <class Key, class Value>
void repair(std::map<Key, Value>& entries);
template <class... Members>
void repair(std::tuple<Members...>& members);
template <class... Alternatives>
void repair(std::variant<Alternatives...>& value);

/** Repairs a part of a value, if its type holds text. */
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

// Two elements may become equal; one of them is kept.
template <class Element>
void repair(std::set<Element>& elements)
{
    std::set<Element> result;
    while (!elements.empty())
    {
        auto element = elements.extract(elements.begin());
        repair(element.value());
        result.insert(std::move(element));
    }
    elements = std::move(result);
}

// Two keys may become equal. The first is kept, as when a client sends one key twice.
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

// A variant without a value has nothing to repair. Appending it fails later, with an error.
template <class... Alternatives>
void repair(std::variant<Alternatives...>& value)
{
    if (!value.valueless_by_exception())
    {
        std::visit([](auto& held) { repair_part(held); }, value);
    }
}

/** Repairs a value for the bus. Throws SdBusError if it doesn't fit into a message. */
template <class Type>
void make_sendable(Type& value)
{
    repair_part(value);
    check_wire_size(value);
}

/** The value, made sendable. */
template <class Type>
Type for_bus(Type value)
{
    make_sendable(value);
    return value;
}

} // namespace gantry
