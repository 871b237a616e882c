/*
 * The bus callbacks of methods. In reply shape sdbusplus reads the arguments, makes the reply and
 * sends what the virtual method returns; in message shape the virtual method gets the message and
 * answers it itself. In both shapes an SdBusError becomes the client's error, and any other
 * exception is carried to the dispatch loop, without a reply. The host may refuse or defer the call
 * meanwhile (call.hpp).
 */
#pragma once

#include "call.hpp"
#include "edges.hpp"
#include "for_bus.hpp"
#include "property.hpp"

#include <functional>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>

namespace gantry
{

/** at_bus_edge() for a method's callback, with handlers for SdBusError and Taken inside it. */
int at_method_edge(const ServedCall& served, sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                   CallReference call);

/** Has sdbusplus send no reply to a call that was taken. */
[[noreturn]] void pass_taken(ServedCall& served, sd_bus_error* error);

/** Has sdbusplus set no error for a failure, whose text it would set as it is. */
[[noreturn]] void pass_failure(const ServedCall& served, sdbusplus::SdBusInterface* bus,
                               sd_bus_error* error,
                               const sdbusplus::exception::SdBusError& failure);

template <class Result, class... Arguments>
using Method = Result (Object::*)(Arguments...);

/** The method as sdbusplus takes it: as a std::function, by reference, so that nothing is
 * allocated. */
template <class Result, class... Arguments>
struct Call
{
    Object& object;
    Method<Result, Arguments...> method;
    ServedCall& served;
    sdbusplus::SdBusInterface* bus;
    sd_bus_error* error;

    Result operator()(Arguments&&... arguments) const
    {
        try
        {
            auto result = (object.*method)(std::move(arguments)...);
            if (served.is_taken())
            {
                pass_taken(served, error);
            }
            return for_bus(std::move(result));
        }
        catch (const sdbusplus::exception::SdBusError& failure)
        {
            pass_failure(served, bus, error, failure);
        }
    }
};

/** The class-independent core of call_method(), instantiated once for each form of a method. */
template <bool multiple_results, class Result, class... Arguments>
[[gnu::noinline]] int call_object_method(sd_bus_message* message, Object& object,
                                         sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                                         Method<Result, Arguments...> method)
{
    ServedCall served(&object, message, ServedCall::Kind::method);
    const Call<Result, Arguments...> call{object, method, served, bus, error};
    return at_method_edge(served, bus, error,
                          [&]
                          {
                              return sdbusplus::sdbuspp::method_callback<multiple_results>(
                                  message, bus, error,
                                  std::function<Result(Arguments && ...)>(std::cref(call)));
                          });
}

/**
 * The body of the callback of a method in reply shape. With `multiple_results` the method returns a
 * tuple of the reply's values, without it one value.
 */
template <bool multiple_results, class Class, class Result, class... Arguments>
int call_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                sd_bus_error* error, Result (Class::*method)(Arguments...))
{
    return call_object_method<multiple_results, Result, Arguments...>(
        message, reinterpret_cast<Object&>(object), bus, error,
        reinterpret_cast<Method<Result, Arguments...>>(method));
}

using MessageMethod = Method<void, sdbusplus::message::message&>;

/** The class-independent core of call_message_method(). */
int call_object_message_method(sd_bus_message* message, Object& object,
                               sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                               MessageMethod method);

/** The body of the callback of a method in message shape. */
template <class Class>
int call_message_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                        sd_bus_error* error, void (Class::*method)(sdbusplus::message::message&))
{
    return call_object_message_method(message, reinterpret_cast<Object&>(object), bus, error,
                                      reinterpret_cast<MessageMethod>(method));
}

} // namespace gantry
