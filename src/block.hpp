/*
 * Arrays of numbers in messages. sd-bus reads and appends such an array as one block, sdbusplus
 * element by element, at many times the cost. Values of all other types are left to sdbusplus.
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

/** Whether values of the type are read and appended as one block. An array of booleans isn't,
 *  because a boolean has four bytes in a message. */
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
        // Either the sender has the other byte order, which sd-bus converts only element by
        // element, or the value isn't such an array, which the read below reports. The failed call
        // hasn't moved the read position.
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
