/*
 * Replies that clients don't read. The bus keeps them for its clients; when it has as many as it
 * allows of one host, dbus-daemon stops reading that host, and then its replies gather in the
 * connection's write queue. Two bounds are kept at the connection's filter, before a call reaches
 * an object; what passes them is answered with LimitsExceeded.
 *
 * Any call, by what waits to be written: at most `max_waiting` bytes of replies. The replies are
 * sd-bus's, which doesn't tell their sizes: one with properties of an object counts as about what
 * all of them have, and any other as `usual_reply`.
 *
 * A GetManagedObjects, by what others got of the bus's room: at most `max_managed` bytes of such
 * replies in `managed_period`. That leaves room at the bus for all other replies, so that a few
 * hundred connections which ask at once and don't read stop nobody. A client that asks when no
 * other message waits to be read has seen its former replies, so those don't count.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace gantry
{

struct Backpressure
{
    /** The GetManagedObjects replies of one client. */
    struct Managed
    {
        std::size_t bytes = 0;
        std::uint64_t last = 0; // microseconds of CLOCK_MONOTONIC
    };

    /** The calls since the write queue was empty, and about what their replies have. */
    std::uint64_t calls = 0;
    std::size_t bytes = 0;

    std::map<std::string, Managed, std::less<>> managed;
};

/** For the connection's filter: answers a call that passes a bound. Returns 1 if it did, 0 for the
 *  call to go on. */
int refuse_if_too_much_waits(sd_bus_message* call, GANTRY_cpp_context& context);

} // namespace gantry
