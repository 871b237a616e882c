/*
 * The bus callbacks of methods. In reply shape sdbusplus reads the arguments, makes the reply and
 * sends what the virtual method returns; in message shape the method gets the message and answers
 * it itself. Either way an SdBusError becomes the client's error, and anything else that is thrown
 * is carried to the dispatch loop, with no reply.
 */
#pragma once

#include "carrier.hpp"
#include "for_bus.hpp"
#include "property.hpp"

#include <functional>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>

namespace gantry
{

/** Runs a method's callback: at_edge(), with a handler for SdBusError inside it. */
template <class Call>
int at_method_edge(sdbusplus::SdBusInterface* bus, sd_bus_error* error, const Call& call)
{
    return at_edge(
        [&]
        {
            try
            {
                return call();
            }
            catch (const sdbusplus::exception::SdBusError& failure)
            {
                return bus->sd_bus_error_set(error, failure.name(), failure.description());
            }
        },
        as_handled);
}

template <class Result, class... Arguments>
using Method = Result (Object::*)(Arguments...);

/** What sdbusplus is given as a std::function, by reference, so that nothing is allocated. */
template <class Result, class... Arguments>
struct Call
{
    Object& object;
    Method<Result, Arguments...> method;

    Result operator()(Arguments&&... arguments) const
    {
        return for_bus((object.*method)(std::move(arguments)...));
    }
};

/** call_method() for a class already forgotten: one instance for each form of a method. */
template <bool multiple_results, class Result, class... Arguments>
[[gnu::noinline]] int call_method_of(sd_bus_message* message, Object& object,
                                     sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                                     Method<Result, Arguments...> method)
{
    const Call<Result, Arguments...> call{object, method};
    return at_method_edge(bus, error,
                          [&]
                          {
                              return sdbusplus::sdbuspp::method_callback<multiple_results>(
                                  message, bus, error,
                                  std::function<Result(Arguments && ...)>(std::cref(call)));
                          });
}

/**
 * The callback of a method in reply shape. With `multiple_results` the members of the tuple that
 * the method returns are the reply's values; without it the result is one value.
 */
template <bool multiple_results, class Class, class Result, class... Arguments>
int call_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                sd_bus_error* error, Result (Class::*method)(Arguments...))
{
    return call_method_of<multiple_results, Result, Arguments...>(
        message, reinterpret_cast<Object&>(object), bus, error,
        reinterpret_cast<Method<Result, Arguments...>>(method));
}

using MessageMethod = Method<void, sdbusplus::message::message&>;

int call_message_method_of(sd_bus_message* message, Object& object, sdbusplus::SdBusInterface* bus,
                           sd_bus_error* error, MessageMethod method);

/** The callback of a method in message shape. */
template <class Class>
int call_message_method(sd_bus_message* message, Class& object, sdbusplus::SdBusInterface* bus,
                        sd_bus_error* error, void (Class::*method)(sdbusplus::message::message&))
{
    return call_message_method_of(message, reinterpret_cast<Object&>(object), bus, error,
                                  reinterpret_cast<MessageMethod>(method));
}

} // namespace gantry
