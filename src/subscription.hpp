/*
 * Subscriptions to signals, which a host can end. Each is a match of sd-bus on all that the host
 * named. The context owns the subscription; the host has its serial as its GANTRY_subscription*
 * (serial.hpp).
 *
 * Any client can send a signal directly to this connection, although no match on the bus asks for
 * it. sd-bus compares such a signal with the match, too, but not with a well-known name of the
 * sender, since messages carry unique names. So a subscription to a well-known name keeps the
 * unique name of its owner: it asks the bus at first, and then follows NameOwnerChanged. Both
 * arrive in order with the signals.
 */
#pragma once

#include "signal.hpp"

#include <gantry/signal.h>

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <string>

namespace gantry
{

struct HostSubscription : std::enable_shared_from_this<HostSubscription>
{
    using Slot = std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)>;

    /** What is called for a signal, and how. */
    struct Target
    {
        Place place;
        GANTRY_cpp_context* context;
        void (*pass_on)(const HostSubscription& to, sdbusplus::message_t& message);
        void (*callback)();
        void* data;
    };

    Target target;
    std::uintptr_t serial;
    /** If `has_owner`, the unique name of the only sender whose signals are passed on. */
    std::string owner;
    bool has_owner = false;
    /** The signal for which the callback runs; null if it doesn't run. */
    sd_bus_message* present = nullptr;

    Slot match{nullptr, sd_bus_slot_unref};
    Slot owner_match{nullptr, sd_bus_slot_unref};
    Slot owner_question{nullptr, sd_bus_slot_unref};

    HostSubscription(const Target& heard, std::uintptr_t number) : target(heard), serial(number)
    {
    }
    [[nodiscard]] GANTRY_API GANTRY_subscription* handle() const noexcept;
};

/** Adds a subscription to its context. A null context of the target is the calling thread's. */
GANTRY_API void add_subscription(HostSubscription::Target target, const char* interface,
                                 const char* member, const GANTRY_match* from,
                                 GANTRY_subscription** out, int* error);

/** The body of an exported subscribing function. */
template <class... Values, class Callback>
void subscribe(const Place& place, const char* interface, const char* member,
               GANTRY_cpp_context* context, const GANTRY_match* from, Callback* callback,
               void* data, GANTRY_subscription** out, int* error)
{
    using Form = void (*)(GANTRY_subscription*, typename CForm<Values>::type..., void*);

    const auto pass = [](const HostSubscription& to, sdbusplus::message_t& message)
    {
        const auto call = [&to](auto... form)
        { reinterpret_cast<Form>(to.target.callback)(to.handle(), form..., to.target.data); };
        pass_on<Values...>(to.target.place, *to.target.context, message, call);
    };
    add_subscription({place, context, pass, reinterpret_cast<void (*)()>(callback), data},
                     interface, member, from, out, error);
}

} // namespace gantry
