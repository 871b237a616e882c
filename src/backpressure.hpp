/*
 * Bounds on replies that clients don't read. The bus queues replies for its clients. When it has
 * queued as many as it allows one host, dbus-daemon stops reading that host, whose replies then
 * gather in the connection's write queue. There are two bounds, and a call that would exceed one is
 * answered with LimitsExceeded.
 *
 * The first is on the replies in the write queue: about `max_waiting` bytes. It holds for every
 * call, and the connection's filter checks it before the call reaches an object. sd-bus makes the
 * replies and doesn't report their sizes, so they are estimated: a reply with properties of an
 * object counts as about the size of all its properties, and any other reply as `usual_reply`.
 * While the queue is empty, only every `looked_at`th message checks it; the others cost two
 * instructions.
 *
 * The second is on the replies to GetManagedObjects of a path that the host chose. When the bus was
 * given more than `max_managed` bytes of them in `managed_period`, the next such call is refused.
 * That leaves room at the bus for all other replies, even if a few hundred connections ask at once
 * and don't read. A client that asks when no other message waits to be read has read its earlier
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

    /** Null until see_messages() has added the filter. */
    GANTRY_cpp_context* context = nullptr;

    /** How many messages from now the write queue is checked. */
    std::uint32_t unseen = 1;

    /** The calls since the write queue was empty, and the estimated bytes of their replies. */
    std::uint64_t calls = 0;
    std::size_t bytes = 0;

    std::map<std::string, Managed, std::less<>> managed;
};

/** Called by the connection's filter when `unseen` has become 0: refuses a call if the write queue
 *  has no room for its reply. Returns 1 if it did, or 0 if sd-bus is to dispatch the message. */
int refuse_if_too_much_waits(sd_bus_message* message, Backpressure& pressure);

/** Whether a GetManagedObjects may be answered. If so, counts its reply. */
bool may_get_managed(sd_bus_message* call, GANTRY_cpp_context& context);

inline constexpr char too_much_unread[] = "too many replies wait to be read";

} // namespace gantry
