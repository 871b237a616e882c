/*
 * The context in C++: its fields and its typed operations. A typed operation does what the function
 * of <gantry/context.h> named without `cpp_` does; both log the typed name.
 */
#pragma once

#include <gantry/call.h>
#include <gantry/context.h>

#include <sdbusplus/bus.hpp>
#include <sdbusplus/message.hpp>
#include <sdeventplus/event.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace gantry
{

struct ContextState;

/** Holds an object manager on the bus; the slot is null if the connection refused it. */
struct ObjectManager
{
    explicit ObjectManager(sd_bus_slot* added) : slot(added)
    {
    }

    ObjectManager(const ObjectManager&) = delete;
    ObjectManager(ObjectManager&&) = delete;
    ObjectManager& operator=(const ObjectManager&) = delete;
    ObjectManager& operator=(ObjectManager&&) = delete;

    ~ObjectManager()
    {
        if (slot != nullptr)
        {
            sd_bus_slot_unref(slot);
        }
    }

    sd_bus_slot* slot;
};

/**
 * A match and the function that each matching message is passed to. sdbusplus's own class for a
 * match doesn't report that the connection refused the match, and aborts the process if the thread
 * ends inside the callback.
 */
struct Subscription
{
    using Arrival = std::function<void(sdbusplus::message_t&)>;

    explicit Subscription(Arrival function) :
        arrival(std::make_unique<Arrival>(std::move(function)))
    {
    }

    Subscription(const Subscription&) = delete;
    Subscription(Subscription&&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    Subscription& operator=(Subscription&&) = delete;

    ~Subscription()
    {
        arrival.reset();
        sd_bus_slot_unref(slot);
    }

    /** Null if the connection refused the match. */
    sd_bus_slot* slot = nullptr;
    std::unique_ptr<Arrival> arrival;
};

} // namespace gantry

struct GANTRY_cpp_context
{
    /** One published object. Its deleter is specific to its class and so identifies the class. */
    struct Tracked
    {
        void* object;
        void (*deleter)(void*);
    };

    GANTRY_cpp_context();
    GANTRY_cpp_context(const GANTRY_cpp_context&) = delete;
    GANTRY_cpp_context(GANTRY_cpp_context&&) = delete;
    GANTRY_cpp_context& operator=(const GANTRY_cpp_context&) = delete;
    GANTRY_cpp_context& operator=(GANTRY_cpp_context&&) = delete;
    ~GANTRY_cpp_context();

    /**
     * Checks the connection and logs what is wrong: the calling thread isn't the connection's, the
     * last check is too long ago, a queue is too long. Changes only last_serviced.
     */
    GANTRY_API void sanity_check() noexcept;

    sdbusplus::bus_t bus;
    sdeventplus::Event event;

    /** Null: no name was set yet. Empty: no name is wanted. The host owns the text. */
    const char* service_name = nullptr;

    /** The object manager that was added last, unless its object was freed. The context owns it;
     *  the ones before belong to the connection. */
    gantry::ObjectManager* object_manager = nullptr;

    void* user_private = nullptr;

    /** Every object on this context, oldest first. The object of an entry is null once it was freed
     *  and the entry has not been removed yet. */
    std::vector<Tracked> tracker;

    /** True until destruction begins. */
    bool running = true;

    std::vector<std::unique_ptr<gantry::Subscription>> signal_matches;

    /** Seconds of CLOCK_MONOTONIC at the last health check; 0 before the first. */
    std::int64_t last_serviced = 0;

    // The health check's limits; a value equal to its limit passes.
    std::int32_t delta_log_seconds = 3;
    std::int32_t not_serviced_seconds = 60;
    std::uint64_t max_read_queue = 100;
    std::uint64_t max_write_queue = 100;

    /** What only the library itself uses. */
    std::unique_ptr<gantry::ContextState> state;
};

GANTRY_API void GANTRY_cpp_context_new(GANTRY_cpp_context** out);
GANTRY_API void GANTRY_cpp_context_free(GANTRY_cpp_context** context);
GANTRY_API void GANTRY_cpp_context_set_service(GANTRY_cpp_context* context, char* name);
GANTRY_API void GANTRY_cpp_context_get_user_private(GANTRY_cpp_context* context, void** out);
GANTRY_API void GANTRY_cpp_context_set_user_private(GANTRY_cpp_context* context,
                                                    void* user_private);

/** The connection under a bus object, without a further reference. */
GANTRY_API sd_bus* GANTRY_get_sd_bus(sdbusplus::bus_t& bus);
