// What every sd-bus callback of a server class does around the class's own function: wrap the
// message, read the arguments, call the function, append the results. A failure in this layer
// becomes the client's error; all other exceptions propagate to the caller of the dispatching.
#pragma once

#include "sdbusplus/exception.hpp"
#include "sdbusplus/message.hpp"
#include "sdbusplus/sdbus.hpp"
#include "sdbusplus/server/transaction.hpp"

#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

namespace sdbusplus
{
namespace sdbuspp
{
namespace details
{

/** serve() for a body given as a function and the object that it works on. */
int serve(sd_bus_message* msg, SdBusInterface* intf, sd_bus_error* error,
          void (*body)(const void* what, message::message& m), const void* what);

/**
 * Wraps `msg`, begins its transaction, runs `body` on it, and puts a failure of this layer into
 * `error`.
 */
template <class Body>
int serve(sd_bus_message* msg, SdBusInterface* intf, sd_bus_error* error, const Body& body)
{
    return serve(
        msg, intf, error,
        [](const void* what, message::message& m) { (*static_cast<const Body*>(what))(m); }, &body);
}

} // namespace details

/**
 * Serves a property. A function without argument is a getter, whose result is appended to `msg`,
 * the reply under construction; a function of one argument is a setter, which gets the value in
 * `msg`. Returns 1, or the result of putting a failure into `error`.
 */
template <class R, class... Args>
int property_callback(sd_bus_message* msg, SdBusInterface* intf, sd_bus_error* error,
                      std::function<R(Args&&...)> f)
{
    static_assert(sizeof...(Args) == (std::is_void_v<R> ? 1 : 0), "a getter or a setter");

    if constexpr (std::is_void_v<R>)
    {
        return details::serve(msg, intf, error,
                              [&](message::message& m)
                              { std::apply(f, message::read_values<Args...>(intf, m.get())); });
    }
    else
    {
        return details::serve(msg, intf, error, [&](message::message& m) { m.append(f()); });
    }
}

/**
 * Serves a method: reads its arguments from `msg` and sends its result as the reply, which is made
 * before the function runs. With `multi_return` the result is a tuple whose members are the
 * method's separate results; otherwise it is one value, and a tuple is one struct. Returns 1, or
 * the result of putting a failure into `error`.
 */
template <bool multi_return = false, class R, class... Args>
int method_callback(sd_bus_message* msg, SdBusInterface* intf, sd_bus_error* error,
                    std::function<R(Args&&...)> f)
{
    return details::serve(msg, intf, error,
                          [&](message::message& m)
                          {
                              auto arguments = message::read_values<Args...>(intf, m.get());
                              auto reply = m.new_method_return();
                              if constexpr (std::is_void_v<R>)
                              {
                                  std::apply(f, std::move(arguments));
                              }
                              else if constexpr (multi_return)
                              {
                                  std::apply([&](const auto&... results)
                                             { reply.append(results...); },
                                             std::apply(f, std::move(arguments)));
                              }
                              else
                              {
                                  reply.append(std::apply(f, std::move(arguments)));
                              }
                              reply.method_return();
                          });
}

} // namespace sdbuspp
} // namespace sdbusplus
