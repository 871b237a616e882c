/*
 * From an override to the host's C function and back. The override of a method has its inputs as
 * server-side values, or in message shape still in the message; the host's function has them as C
 * values, lent for the call, and puts its results through pointers that start at zero:
 *
 *     inputs -> C forms -> table[slot](instance, inputs..., &outputs...) -> results -> release
 *
 * A missing record, table or slot is logged and leaves the zeros. What goes wrong with a
 * std::exception is logged here, and a bare std::exception goes on: it ends the dispatch loop, and
 * the client gets no reply.
 */
#pragma once

#include "c_form.hpp"
#include "for_bus.hpp"
#include "instance.hpp"
#include "log.hpp"

#include <exception>
#include <optional>
#include <sdbusplus/message.hpp>

namespace gantry
{

/** Some function of a table; its true type is that of its slot. */
using SlotFunction = void (*)();

/** The function in slot `slot` of the host's table; null, and logged, when there is none. */
SlotFunction find_function(const Place& place, const GANTRY_instance* instance, std::size_t slot);

/** Logs the exception being handled and gives what goes on in its place. */
std::exception give_up(const Place& place, const std::exception& failure);

/** What an override returns: one value, or a tuple of several. */
template <class... Outputs>
struct Results
{
    using type = std::tuple<Outputs...>;
};
template <class Output>
struct Results<Output>
{
    using type = Output;
};

template <class Type>
inline constexpr bool is_array = false;
template <class Element>
inline constexpr bool is_array<std::vector<Element>> = true;

/** One call of a host's function: C forms of inputs and outputs, released in this order. */
template <class Inputs, class Outputs>
struct SlotCall;

template <class... Inputs, class... Outputs>
struct SlotCall<std::tuple<Inputs...>, std::tuple<Outputs...>>
{
    // Members are destroyed last to first.
    CForms<Outputs...> outputs;
    CForms<Inputs...> inputs;

    void run(const Place& place, GANTRY_instance* instance, SlotFunction function)
    {
        using Function = void (*)(GANTRY_instance*, typename CForm<Inputs>::type...,
                                  typename CForm<Outputs>::type * ...);
        if (function == nullptr)
        {
            GANTRY_LOG_AT(place, log::trace, "not calling callback");
            return;
        }
        std::apply(
            [&](auto&... input)
            {
                std::apply(
                    [&](auto&... output)
                    { reinterpret_cast<Function>(function)(instance, input..., &output...); },
                    outputs.forms);
            },
            inputs.forms);
    }

    /** The outputs' values. An array of an input's type is put where that input's value was. */
    typename Results<Outputs...>::type results(Inputs&... values)
    {
        return std::apply(
            [&](auto&... output) {
                return typename Results<Outputs...>::type{read_into<Outputs>(output, values...)...};
            },
            outputs.forms);
    }

  private:
    template <class Output>
    static Output read_into(typename CForm<Output>::type form, Inputs&... values)
    {
        Output output{};
        static_cast<void>((take(output, values) || ...));
        CForm<Output>::read(form, output);
        return output;
    }

    template <class Output, class Input>
    static bool take(Output& output, Input& value)
    {
        if constexpr (is_array<Output> && std::is_same_v<Output, Input>)
        {
            output = std::move(value);
            return true;
        }
        return false;
    }
};

/** The body of an override in reply shape. Its own parameters are used up. */
template <std::size_t slot, class... Outputs, class... Inputs>
typename Results<Outputs...>::type dispatch(const Place& place, GANTRY_instance* instance,
                                            Inputs&... inputs)
{
    try
    {
        const auto function = find_function(place, instance, slot);
        SlotCall<std::tuple<Inputs...>, std::tuple<Outputs...>> call;
        call.inputs.make(inputs...);
        call.run(place, instance, function);
        return call.results(inputs...);
    }
    catch (const std::exception& failure)
    {
        throw give_up(place, failure);
    }
}

/** Reads an argument of the message into its C form. */
template <class Type>
void read_argument(sdbusplus::message::message& message, typename CForm<Type>::type& form)
{
    if constexpr (std::is_arithmetic_v<Type>)
    {
        message.read(form);
    }
    else if constexpr (std::is_same_v<Type, std::string>)
    {
        GANTRY_string_parse_parameter(message, &form);
    }
    else
    {
        Type value{};
        message.read(value);
        CForm<Type>::make(form, value);
    }
}

/** The body of an override in message shape: it makes and sends the reply too. */
template <std::size_t slot, class Outputs, class... Inputs>
void dispatch_message(const Place& place, GANTRY_instance* instance,
                      sdbusplus::message::message& message)
{
    try
    {
        const auto function = find_function(place, instance, slot);
        // Goes last, behind all that the call made.
        std::optional<sdbusplus::message::message> reply;
        SlotCall<std::tuple<Inputs...>, Outputs> call;
        std::apply([&](auto&... input) { (read_argument<Inputs>(message, input), ...); },
                   call.inputs.forms);
        call.run(place, instance, function);
        reply.emplace(message.new_method_return());
        [&]<class... Types>(std::type_identity<std::tuple<Types...>>)
        {
            std::apply([&](auto&... output)
                       { (reply->append(for_bus(read_form<Types>(output))), ...); },
                       call.outputs.forms);
        }(std::type_identity<Outputs>{});
        reply->method_return();
    }
    catch (const std::exception& failure)
    {
        throw give_up(place, failure);
    }
}

} // namespace gantry
