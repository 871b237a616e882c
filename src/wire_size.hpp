/*
 * The size that values have in a D-Bus message. A bus closes the connection of a sender whose
 * message it finds too large, and sd-bus doesn't check that when it sends. So a value that is too
 * large is refused before it is stored or appended.
 *
 * Some messages have all properties of an object. What a host stores in them altogether is its own
 * responsibility; a client's write is refused if the sum would become too large
 * (property_callbacks.cpp).
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

/** The largest message that a system bus accepts unless it is configured otherwise. A larger limit
 *  must stay under 64 MiB, since properties are sent in an array and no array may be larger. */
inline constexpr std::size_t max_message_size = 32U << 20U;

/** The largest size of one value, which leaves room for a header and the names around the value. */
inline std::size_t max_value_size()
{
    return max_message_size - (64U << 10U);
}

/** The length of a type's signature. */
template <class Type>
inline constexpr std::size_t signature_length = 1;
template <class Element>
inline constexpr std::size_t signature_length<std::vector<Element>> = 1 + signature_length<Element>;
template <class Element>
inline constexpr std::size_t signature_length<std::set<Element>> = 1 + signature_length<Element>;
template <class Key, class Value>
inline constexpr std::size_t signature_length<std::map<Key, Value>> =
    3 + signature_length<Key> + signature_length<Value>;
template <class... Members>
inline constexpr std::size_t signature_length<std::tuple<Members...>> = (2 + ... +
                                                                         signature_length<Members>);

/** Sums the size of values that are appended one after the other. */
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
        add_text(text.size());
    }

    template <class Element>
    void add(const std::vector<Element>& elements)
    {
        if constexpr (std::is_arithmetic_v<Element>)
        {
            add_bytes(4, 4);
            add_bytes(alignment<Element>, elements.size() * alignment<Element>);
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
        if (!value.valueless_by_exception())
        {
            std::visit(
                [this]<class Held>(const Held& held)
                {
                    add_signature(signature_length<Held>);
                    this->add(held);
                },
                value);
        }
    }

    /** Adds a text of that length. */
    void add_text(std::size_t length)
    {
        add_bytes(4, 4 + length + 1);
    }

    void add_signature(std::size_t length)
    {
        add_bytes(1, 1 + length + 1);
    }

    void add_bytes(std::size_t alignment_of_bytes, std::size_t count)
    {
        at = (at + alignment_of_bytes - 1) / alignment_of_bytes * alignment_of_bytes + count;
    }

    [[nodiscard]] std::size_t size() const noexcept
    {
        return at;
    }

  private:
    /** A number's alignment, which is its size too; a boolean takes four bytes. */
    template <class Number>
    static constexpr std::size_t alignment = std::is_same_v<Number, bool> ? 4 : sizeof(Number);

    template <class Elements>
    void add_array(const Elements& elements)
    {
        add_bytes(4, 4);
        for (const auto& element : elements)
        {
            add(element);
        }
    }

    std::size_t at = 0;
};

/** The size of one value. It isn't inlined, so that its code exists once per type. */
template <class Type>
[[gnu::noinline]] std::size_t wire_size(const Type& value)
{
    WireSize size;
    size.add(value);
    return size.size();
}

inline std::size_t wire_size(const std::string& text)
{
    return 4 + text.size() + 1;
}

[[noreturn, gnu::cold, gnu::noinline]] inline void throw_too_large()
{
    throw sdbusplus::exception::SdBusError(EMSGSIZE, "sd_bus_message_append");
}

/** Throws SdBusError with EMSGSIZE if the value is too large for a message. */
template <class Type>
void check_wire_size(const Type& value)
{
    if constexpr (!std::is_arithmetic_v<Type>)
    {
        if (wire_size(value) > max_value_size())
        {
            throw_too_large();
        }
    }
}

} // namespace gantry
