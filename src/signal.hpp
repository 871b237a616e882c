/*
 * Signals, out and in.
 *
 * Out: an emitting operation of a server class sends a signal from its object. The exported
 * function finds the object, the one that the host gave or the first of its class on the thread's
 * context, and converts the C values for the operation.
 *
 * In: a receiving function adds a match on the member name alone, which stays until the context is
 * destroyed; subscription.hpp has matches on more than that, which the host can end. Each arrival
 * is read into C forms, which are lent to the host's callback and then released. Any client of the
 * bus can send a signal of that name, so one whose values can't be read is logged and dropped, and
 * ends no loop.
 */
#pragma once

#include "block.hpp"
#include "for_bus.hpp"
#include "instance.hpp"
#include "method_to_c.hpp"
#include "waiting_changes.hpp"

#include <gantry/context.hpp>

#include <functional>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

namespace gantry
{

/** An emitting operation's body. Throws SdBusError when the signal can't be made or sent. */
template <class Class, class... Values>
void emit(Class& object, const char* member, const Values&... values)
{
    send_all_changes();
    auto message = reinterpret_cast<Object&>(object).server_interface.new_signal(member);
    (append_value(message, for_bus(values)), ...);
    message.signal_send();
}

/**
 * The record of the object that a signal comes from: `instance`, or for null what `instance_of`
 * gives for the first object of the class on the thread's context. Returns null, and logs why, if
 * there is none or if the host gave an object of another class.
 */
GANTRY_API const GANTRY_instance*
find_sender(const Place& place, const Descriptor& descriptor, const GANTRY_instance* instance,
            const GANTRY_instance* (*instance_of)(const void* object));

/** The body of an exported emitting function. */
template <class Class, class Server, class... Values, class... Forms>
void send_signal(const Place& place, const Descriptor& descriptor, const GANTRY_instance* instance,
                 void (Server::*operation)(Values...), Forms... forms)
try
{
    GANTRY_LOG_AT(place, log::trace, "enter");
    const auto instance_of = [](const void* object) -> const GANTRY_instance*
    { return static_cast<const Class*>(object)->inst; };
    if (const auto* sender = find_sender(place, descriptor, instance, instance_of))
    {
        (static_cast<Class*>(sender->the_service)->*operation)(from_c<Values>(forms)...);
    }
}
catch (const std::exception& failure)
{
    GANTRY_LOG_EXCEPTION_AT(place, failure.what());
}

/** Adds a match to the context's connection, and waits for the bus to confirm it. Returns a
 * negative errno if that fails. */
int add_match(GANTRY_cpp_context& context, const std::string& rule,
              sd_bus_message_handler_t on_arrival, void* data, sd_bus_slot** slot);

/** Reads a signal and passes it to the host's callback; `place` is for the log. */
using Receive = std::function<void(const Place& place, GANTRY_cpp_context& context,
                                   sdbusplus::message_t& message)>;

/** The core of receive_signal(): adds a match on the member name to the context. */
GANTRY_API void subscribe(const Place& place, GANTRY_cpp_context* context, const char* member,
                          Receive receive);

/** Logs that a signal can't be read, at most nine times per minute, since any client can cause it.
 */
GANTRY_API void log_unreadable(const Place& place, GANTRY_cpp_context& context, const char* what);

/** Reads a signal's values. Returns false, and logs it, if they have other types than the table's.
 */
template <class... Values>
[[gnu::noinline]] bool read_signal(const Place& place, GANTRY_cpp_context& context,
                                   sdbusplus::message_t& message, CForms<Values...>& values)
try
{
    std::apply([&](auto&... form) { (read_argument<Values>(message, form), ...); }, values.forms);
    return true;
}
catch (const sdbusplus::exception::SdBusError& failure)
{
    log_unreadable(place, context, failure.what());
    return false;
}

/** Calls `call` with the values of a signal that has arrived, if they can be read. */
template <class... Values, class Call>
void pass_on(const Place& arrival, GANTRY_cpp_context& context, sdbusplus::message_t& message,
             const Call& call)
{
    GANTRY_LOG_AT(arrival, log::trace, "enter lambda");
    CForms<Values...> values;
    if (read_signal(arrival, context, message, values))
    {
        std::apply(call, values.forms);
    }
}

/** The body of an exported receiving function. The host's callback must not be null. */
template <class... Values, class Callback>
void receive_signal(const Place& place, GANTRY_cpp_context* context, const char* member,
                    Callback* callback)
{
    using Form = void (*)(GANTRY_cpp_context*, typename CForm<Values>::type...);

    subscribe(place, context, member,
              [callback = reinterpret_cast<Form>(callback)](
                  const Place& arrival, GANTRY_cpp_context& receiver, sdbusplus::message_t& message)
              {
                  pass_on<Values...>(arrival, receiver, message,
                                     [&](auto... form) { callback(&receiver, form...); });
              });
}

} // namespace gantry
