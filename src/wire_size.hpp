/*
 * The size that a value has in a D-Bus message. The protocol limits an array to 64 MiB and a
 * message to 128 MiB. sd-bus doesn't check either when it sends: the bus closes the connection of a
 * sender that exceeds them. So what exceeds them is refused before it is stored or appended.
 */
#pragma once

#include <cerrno>
#include <cstddef>
#include <map>
#include <sdbusplus/exception.hpp>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

namespace gantry
{

/** Walks over a value as it would be appended. Throws SdBusError with EMSGSIZE for too much. */
class WireSize
{
  public:
    template <class Number>
    requires std::is_arithmetic_v<Number>
    void add(Number /*value*/)
    {
        add_bytes(alignment<Number>, alignment<Number>);
    }

    void add(const std::string& text)
    {
        add_bytes(4, 4 + text.size() + 1);
    }

    template <class Element>
    void add(const std::vector<Element>& elements)
    {
        if constexpr (std::is_arithmetic_v<Element>)
        {
            add_bytes(4, 4);
            add_bytes(alignment<Element>, 0);
            const std::size_t begin = at;
            add_bytes(1, elements.size() * alignment<Element>);
            check_array(begin);
        }
        else
        {
            add_array(elements);
        }
    }

    template <class Element>
    void add(const std::set<Element>& elements)
    {
        add_array(elements);
    }

    template <class Key, class Value>
    void add(const std::map<Key, Value>& entries)
    {
        add_array(entries);
    }

    template <class Key, class Value>
    void add(const std::pair<const Key, Value>& entry)
    {
        add_bytes(8, 0);
        add(entry.first);
        add(entry.second);
    }

    template <class... Members>
    void add(const std::tuple<Members...>& members)
    {
        add_bytes(8, 0);
        std::apply([this](const auto&... each) { (this->add(each), ...); }, members);
    }

    template <class... Alternatives>
    void add(const std::variant<Alternatives...>& value)
    {
        constexpr std::size_t longest_signature = 257;
        add_bytes(1, longest_signature);
        if (!value.valueless_by_exception())
        {
            std::visit([this](const auto& held) { this->add(held); }, value);
        }
    }

  private:
    static constexpr std::size_t max_array = 64U << 20U;
    /** Of a message, less what its header may need. */
    static constexpr std::size_t max_body = (128U << 20U) - (64U << 10U);

    /** A number's alignment, which is its size too; a boolean takes four bytes. */
    template <class Number>
    static constexpr std::size_t alignment = std::is_same_v<Number, bool> ? 4 : sizeof(Number);

    void add_bytes(std::size_t alignment_of_bytes, std::size_t count)
    {
        at = (at + alignment_of_bytes - 1) / alignment_of_bytes * alignment_of_bytes + count;
        check(at <= max_body);
    }

    template <class Elements>
    void add_array(const Elements& elements)
    {
        add_bytes(4, 4);
        const std::size_t begin = at;
        for (const auto& element : elements)
        {
            add(element);
        }
        check_array(begin);
    }

    void check_array(std::size_t begin) const
    {
        check(at - begin <= max_array);
    }

    static void check(bool fits)
    {
        if (!fits)
        {
            throw_too_large();
        }
    }

    [[noreturn, gnu::cold, gnu::noinline]] static void throw_too_large()
    {
        throw sdbusplus::exception::SdBusError(EMSGSIZE, "sd_bus_message_append");
    }

    std::size_t at = 0;
};

/** Walks over the value. Not inlined, so that it exists once for a type. */
template <class Type>
[[gnu::noinline]] void walk_wire_size(const Type& value)
{
    WireSize().add(value);
}

/** Throws SdBusError with EMSGSIZE if the value doesn't fit into a message. */
template <class Type>
void check_wire_size(const Type& value)
{
    if constexpr (std::is_same_v<Type, std::string>)
    {
        WireSize().add(value);
    }
    else if constexpr (!std::is_arithmetic_v<Type>)
    {
        walk_wire_size(value);
    }
}

} // namespace gantry
