/*
 * The bus callbacks of methods. In reply shape the arguments are read and the reply is made here,
 * the virtual method runs, and what it returns is sent; in message shape the virtual method gets
 * the message and answers it itself. In both shapes an SdBusError becomes the client's error, and
 * any other exception is carried to the dispatch loop, without a reply. The host may refuse or
 * defer the call meanwhile (served_call.hpp).
 */
#pragma once

#include "block.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "property.hpp"
#include "served_call.hpp"

#include <bit>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <tuple>
#include <utility>

namespace gantry
{

template <class Result, class... Arguments>
using Method = Result (Object::*)(Arguments...);

using MessageMethod = Method<void, sdbusplus::message_t&>;

/** A method of either shape: the body that it is passed to knows its type. */
using AnyMethod = MessageMethod;

/** Runs a method for a call and sends the reply, unless the call is taken meanwhile. */
using MethodBody = void (*)(sdbusplus::message_t& call, const ServedCall& served, Object& object,
                            AnyMethod method);

/** Runs the body of a method's callback between the edges, and returns what sd-bus is to get. */
int serve_method(sd_bus_message* message, Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, AnyMethod method, MethodBody body);

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

/**
 * The body for a method in reply shape, compiled once for each form of a method. The reply is made
 * before the method runs, so that no lack of memory is found after it.
 */
template <bool multiple_results, class Result, class... Arguments>
void answer_call(sdbusplus::message_t& call, const ServedCall& served, Object& object,
                 AnyMethod any_method)
{
    const auto method = std::bit_cast<Method<Result, Arguments...>>(any_method);
    auto arguments = read_arguments<Arguments...>(call);
    auto reply = call.new_method_return();
    auto result =
        std::apply([&](auto&... each) { return (object.*method)(std::move(each)...); }, arguments);
    if (served.is_taken())
    {
        return;
    }
    make_sendable(result);
    if constexpr (multiple_results)
    {
        std::apply([&](const auto&... each) { (append_value(reply, each), ...); }, result);
    }
    else
    {
        append_value(reply, result);
    }
    reply.method_return();
}

/** The body for a method in message shape. */
void pass_call(sdbusplus::message_t& call, const ServedCall& served, Object& object,
               AnyMethod method);

/**
 * The callback of a method in reply shape. With `multiple_results` the method returns a tuple of
 * the reply's values, without it one value.
 */
template <bool multiple_results, class Class, class Result, class... Arguments>
int call_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                sd_bus_error* error, Result (Class::*method)(Arguments...))
{
    return serve_method(message, reinterpret_cast<Object&>(object), bus, error,
                        std::bit_cast<AnyMethod>(method),
                        answer_call<multiple_results, Result, Arguments...>);
}

/** The callback of a method in message shape. */
template <class Class>
int call_message_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                        sd_bus_error* error, void (Class::*method)(sdbusplus::message_t&))
{
    return serve_method(message, reinterpret_cast<Object&>(object), bus, error,
                        std::bit_cast<AnyMethod>(method), pass_call);
}

} // namespace gantry
