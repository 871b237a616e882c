/*
 * The bus callbacks of methods. In reply shape the callback reads the arguments, makes the reply,
 * runs the virtual method and sends what it returns; in message shape the virtual method gets the
 * message and answers it itself. serve() handles exceptions, and calls that the host fails or
 * defers meanwhile (served_call.hpp).
 */
#pragma once

#include "block.hpp"
#include "for_bus.hpp"
#include "served_call.hpp"
#include "waiting_changes.hpp"

#include <bit>
#include <sdbusplus/message.hpp>
#include <tuple>
#include <utility>

namespace gantry
{

template <class... Arguments>
std::tuple<Arguments...> read_arguments(sdbusplus::message_t& call)
{
    if constexpr (sizeof...(Arguments) == 0)
    {
        return {};
    }
    else if constexpr ((is_block<Arguments> || ...))
    {
        std::tuple<Arguments...> arguments{};
        std::apply([&](auto&... each) { (read_value(call, each), ...); }, arguments);
        return arguments;
    }
    else
    {
        // unpack() returns a single value without a tuple.
        return std::tuple<Arguments...>(call.unpack<Arguments...>());
    }
}

/** Appends what a method returns to its reply. */
template <bool multiple_results, class Result>
void append_result(sdbusplus::message_t& reply, Result& result)
{
    make_sendable(result);
    if constexpr (multiple_results)
    {
        std::apply([&](const auto&... each) { (append_value(reply, each), ...); }, result);
    }
    else
    {
        append_value(reply, result);
    }
}

/** append_result() for a deferred call, whose result has lost its type. */
template <bool multiple_results, class Result>
[[gnu::cold]] void append_later_result(sdbusplus::message_t& reply, void* result)
{
    append_result<multiple_results>(reply, *static_cast<Result*>(result));
}

template <bool multiple_results, class Result>
inline constexpr ReplyForm reply_form{typeid(Result),
                                      append_later_result<multiple_results, Result>};

/**
 * The body of a method in reply shape, compiled once per signature of a method. The reply is made
 * first, so that the method doesn't run if memory is too short for a reply.
 */
template <bool multiple_results, class Result, class... Arguments>
void answer_call(sdbusplus::message_t& call, ServedCall& served, Object& object,
                 AnyFunction function)
{
    const auto method = std::bit_cast<Result (Object::*)(Arguments...)>(function);
    auto arguments = read_arguments<Arguments...>(call);
    auto reply = call.new_method_return();
    served.reply_form = &reply_form<multiple_results, Result>;
    auto result =
        std::apply([&](auto&... each) { return (object.*method)(std::move(each)...); }, arguments);
    if (served.is_taken())
    {
        return;
    }
    append_result<multiple_results>(reply, result);
    send_changes_of(object);
    reply.method_return();
}

/**
 * The callback of a method in reply shape. With `multiple_results` the method returns a tuple of
 * the reply's values, without it one value.
 */
template <bool multiple_results, class Class, class Result, class... Arguments>
int call_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                sd_bus_error* error, Result (Class::*method)(Arguments...))
{
    return serve(message, reinterpret_cast<Object&>(object), bus, error,
                 std::bit_cast<AnyFunction>(method),
                 answer_call<multiple_results, Result, Arguments...>);
}

/** The callback of a method in message shape. */
template <class Class>
int call_message_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                        sd_bus_error* error, void (Class::*method)(sdbusplus::message_t&))
{
    return serve(message, reinterpret_cast<Object&>(object), bus, error,
                 std::bit_cast<AnyFunction>(method), pass_message);
}

} // namespace gantry
