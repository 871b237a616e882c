/*
 * Arrays of numbers in messages. sd-bus reads and appends one as a block; sdbusplus does it by
 * elements, at many times the cost. Values of all other types are read and appended by sdbusplus.
 */
#pragma once

#include <systemd/sd-bus.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <type_traits>
#include <vector>

namespace gantry
{

/** Whether a value of the type is one block in a message. A boolean has four bytes there. */
template <class Type>
inline constexpr bool is_block = false;
template <class Number>
inline constexpr bool is_block<std::vector<Number>> =
    std::is_arithmetic_v<Number> && !std::is_same_v<Number, bool>;

/** The letter that a number's type has in a signature. */
template <class Number>
constexpr char number_letter()
{
    if constexpr (std::is_same_v<Number, bool>)
    {
        return SD_BUS_TYPE_BOOLEAN;
    }
    else if constexpr (std::is_floating_point_v<Number>)
    {
        return SD_BUS_TYPE_DOUBLE;
    }
    else
    {
        return (std::is_signed_v<Number> ? "?nix" : "yqut")[std::countr_zero(sizeof(Number))];
    }
}

/** Reads the message's next value. Throws SdBusError if it is of another type. */
template <class Value>
void read_value(sdbusplus::message_t& message, Value& value)
{
    if constexpr (is_block<Value>)
    {
        using Number = typename Value::value_type;
        const void* block = nullptr;
        std::size_t size = 0;
        if (sd_bus_message_read_array(message.get(), number_letter<Number>(), &block, &size) >= 0)
        {
            if (size % sizeof(Number) != 0)
            {
                throw sdbusplus::exception::SdBusError(EBADMSG, "sd_bus_message_read_array");
            }
            const auto* first = static_cast<const Number*>(block);
            value.assign(first, first + size / sizeof(Number));
            return;
        }
        // The sender's byte order is another, which sd-bus converts by elements only, or the value
        // isn't such an array, which reading it by elements reports. The position is still before
        // the value.
    }
    message.read(value);
}

/** Appends a value. If that fails, sd-bus refuses to send the message. */
template <class Value>
void append_value(sdbusplus::message_t& message, const Value& value)
{
    if constexpr (is_block<Value>)
    {
        sd_bus_message_append_array(message.get(), number_letter<typename Value::value_type>(),
                                    value.data(),
                                    value.size() * sizeof(typename Value::value_type));
    }
    else
    {
        message.append(value);
    }
}

} // namespace gantry
