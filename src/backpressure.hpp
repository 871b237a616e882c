/*
 * Replies that clients don't read. The bus keeps them for its clients; when it has as many as it
 * allows of one host, dbus-daemon stops reading that host, and then its replies gather in the
 * connection's write queue. Two bounds are kept, and what passes them is answered with
 * LimitsExceeded.
 *
 * Any call, by what waits to be written, at the connection's filter and so before it reaches an
 * object: at most `max_waiting` bytes of replies. The replies are sd-bus's, which doesn't tell
 * their sizes: one with properties of an object counts as about what all of them have, and any
 * other as `usual_reply`. An empty queue is looked at with every `looked_at`th message only, which
 * costs a call two instructions.
 *
 * A GetManagedObjects of a path that the host chose, by what the bus was given of such replies: no
 * other one follows more than `max_managed` bytes of them in `managed_period`. That leaves room at
 * the bus for all other replies, so that a few hundred connections which ask at once and don't read
 * stop nobody. A client that asks when no other message waits to be read has seen its former
 * replies, so those don't count.
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

    /** The context; null until its messages are seen. */
    GANTRY_cpp_context* context = nullptr;

    /** The messages until the write queue is looked at. */
    std::uint32_t unseen = 1;

    /** The calls since the write queue was empty, and about what their replies have. */
    std::uint64_t calls = 0;
    std::size_t bytes = 0;

    std::map<std::string, Managed, std::less<>> managed;
};

/** For the connection's filter, when no message is left until the look: answers a call that the
 *  write queue has no room for. Returns 1 if it did, 0 for the message to go on. */
int refuse_if_too_much_waits(sd_bus_message* message, Backpressure& pressure);

/** Whether a GetManagedObjects may be answered. If so, it counts. */
bool may_get_managed(sd_bus_message* call, GANTRY_cpp_context& context);

inline constexpr char too_much_unread[] = "too many replies wait to be read";

} // namespace gantry
