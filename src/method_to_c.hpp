/*
 * From the override of a method to the host's C function and back. The override gets its inputs as
 * server-side values, or in message shape still in the message; the host's function gets them as C
 * values, lent for the call, and stores its results through pointers to values that start at zero:
 *
 *     inputs -> C forms -> table[slot](instance, inputs..., &outputs...) -> results -> release
 *
 * A missing record, table or function is logged, and the outputs stay zero. A std::exception is
 * logged here, and a bare std::exception is thrown in its place: it ends the dispatch loop, and the
 * client gets no reply. In message shape, two failures are thrown as they are and become the
 * client's error: arguments that can't be read, and results that can't be appended.
 */
#pragma once

#include "block.hpp"
#include "c_form.hpp"
#include "for_bus.hpp"
#include "instance.hpp"
#include "log.hpp"
#include "served_call.hpp"
#include "waiting_changes.hpp"

#include <exception>
#include <optional>
#include <sdbusplus/message.hpp>

namespace gantry
{

/** A function of a table, without its type. */
using SlotFunction = void (*)();

/** The function in a slot of the host's table. Returns null if there is none, and logs it if there
 * is no record or table. */
GANTRY_API SlotFunction find_function(const Place& place, const GANTRY_instance* instance,
                                      std::size_t slot);

/** Logs an exception and returns the one to throw in its place. */
GANTRY_API std::exception give_up(const Place& place, const std::exception& failure);

/** Logs the exception being handled. Throws it again if it is an SdBusError and `is_for_client`,
 * and else what give_up() returns. */
[[noreturn]] GANTRY_API void rethrow(const Place& place, const std::exception& failure,
                                     bool is_for_client);

/** The type that an override returns: one value, or a tuple of several. */
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
        [&]<std::size_t... input, std::size_t... output>(std::index_sequence<input...>,
                                                         std::index_sequence<output...>)
        {
            reinterpret_cast<Function>(function)(instance, std::get<input>(inputs.forms)...,
                                                 &std::get<output>(outputs.forms)...);
        }
        (std::index_sequence_for<Inputs...>{}, std::index_sequence_for<Outputs...>{});
        std::apply([this](auto&... input) { (this->disown(input), ...); }, inputs.forms);
    }

    /** The outputs' values. */
    typename Results<Outputs...>::type results()
    {
        return std::apply(
            [](auto&... output)
            { return typename Results<Outputs...>::type{read_form<Outputs>(output)...}; },
            outputs.forms);
    }

  private:
    /** Forgets an input that the host's function has returned as an output, which releases it. */
    template <class Form>
    void disown(Form& input)
    {
        if constexpr (std::is_pointer_v<Form>)
        {
            std::apply(
                [&](const auto&... output)
                {
                    if ((is_same(input, output) || ...))
                    {
                        input = nullptr;
                    }
                },
                outputs.forms);
        }
    }

    template <class Output>
    static bool is_same(const void* input, Output output)
    {
        if constexpr (std::is_pointer_v<Output>)
        {
            return input == output;
        }
        return false;
    }
};

/** The body of an override in reply shape. */
template <std::size_t slot, class... Outputs, class... Inputs>
typename Results<Outputs...>::type dispatch(const Place& place, GANTRY_instance* instance,
                                            const Inputs&... inputs)
{
    try
    {
        const auto function = find_function(place, instance, slot);
        SlotCall<std::tuple<Inputs...>, std::tuple<Outputs...>> call;
        call.inputs.make(inputs...);
        call.run(place, instance, function);
        return call.results();
    }
    catch (const std::exception& failure)
    {
        throw give_up(place, failure);
    }
}

/** Reads an argument of the message into its C form. */
template <class Type>
void read_argument(sdbusplus::message_t& message, typename CForm<Type>::type& form)
{
    if constexpr (std::is_same_v<Type, std::string>)
    {
        GANTRY_string_parse_parameter(message, &form);
    }
    else
    {
        Type value{};
        read_value(message, value);
        CForm<Type>::make(form, value);
    }
}

/** The body of an override in message shape: it makes and sends the reply too. */
template <std::size_t slot, class Outputs, class... Inputs>
void dispatch_message(const Place& place, GANTRY_instance* instance, sdbusplus::message_t& message)
{
    // Whether the client gets an SdBusError: its arguments are being read, or the results appended.
    // Any other SdBusError ends the loop.
    bool is_for_client = true;
    try
    {
        const auto function = find_function(place, instance, slot);
        // Declared first, so that the reply is released after the C forms of the call.
        std::optional<sdbusplus::message_t> reply;
        SlotCall<std::tuple<Inputs...>, Outputs> call;
        std::apply([&](auto&... input) { (read_argument<Inputs>(message, input), ...); },
                   call.inputs.forms);
        is_for_client = false;
        call.run(place, instance, function);
        if (is_taken(message.get()))
        {
            return;
        }
        reply.emplace(message.new_method_return());
        is_for_client = true;
        [&]<class... Types>(std::type_identity<std::tuple<Types...>>)
        {
            std::apply([&](auto&... output)
                       { (append_value(*reply, for_bus(read_form<Types>(output))), ...); },
                       call.outputs.forms);
        }(std::type_identity<Outputs>{});
        is_for_client = false;
        if (instance != nullptr)
        {
            send_changes_of(*static_cast<Object*>(instance->the_service));
        }
        reply->method_return();
    }
    catch (const std::exception& failure)
    {
        rethrow(place, failure, is_for_client);
    }
}

} // namespace gantry
