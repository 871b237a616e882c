/*
 * The bus callbacks of methods. In reply shape the arguments are read and the reply is made here,
 * the virtual method runs, and what it returns is sent; in message shape the virtual method gets
 * the message and answers it itself. serve() says what becomes of exceptions, and how the host may
 * refuse or defer the call meanwhile (served_call.hpp).
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
        // One value is not in a tuple.
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

/** For a result that is given later. */
template <bool multiple_results, class Result>
[[gnu::cold]] void append_later_result(sdbusplus::message_t& reply, void* result)
{
    append_result<multiple_results>(reply, *static_cast<Result*>(result));
}

template <bool multiple_results, class Result>
inline constexpr ReplyForm reply_form{typeid(Result),
                                      append_later_result<multiple_results, Result>};

/**
 * The body of a method in reply shape, compiled once for each form of a method. The reply is made
 * before the method runs, so that no lack of memory is found after it.
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
