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

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace gantry
{
struct Descriptor;
struct FreedObject;
struct RootManager;

/**
 * A match and the function that each matching message is passed to. sdbusplus's own class for a
 * match doesn't tell whether the connection refused the match, and aborts the process if the thread
 * ends inside the callback.
 */
struct Subscription
{
    explicit Subscription(std::function<void(sdbusplus::message_t&)> heard) :
        arrival(std::move(heard))
    {
    }

    Subscription(const Subscription&) = delete;
    Subscription(Subscription&&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    Subscription& operator=(Subscription&&) = delete;

    ~Subscription()
    {
        sd_bus_slot_unref(slot);
    }

    std::function<void(sdbusplus::message_t&)> arrival;
    sd_bus_slot* slot = nullptr;
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

    /** The object manager added last, unless its object was freed. Earlier ones belong to the
     *  connection. */
    sd_bus_slot* object_manager = nullptr;

    void* user_private = nullptr;

    /** Every object on this context, oldest first. */
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

    // The library's own.

    /** A stop was requested and the outermost loop hasn't returned yet. Signal handlers set it. */
    std::atomic<bool> stopping{false};
    static_assert(std::atomic<bool>::is_always_lock_free);

    /** The number of this context's loops on the stack; above 1 when a callback entered one. */
    std::uint32_t loops = 0;

    /** Destroys the context when nothing uses it any more; null unless it was freed in use. */
    void (*destroy_when_idle)(GANTRY_cpp_context* context) = nullptr;

    /** Objects that were freed inside a callback and are destroyed after it. */
    gantry::FreedObject* freed_objects = nullptr;

    /** The event source that destroys what was freed; null before the first use. */
    sd_event_source* deferral = nullptr;

    /** The event source that sends the changes noted while the bus doesn't read; null without. */
    sd_event_source* pending_changes = nullptr;

    /** Signals that could not be read in the present minute, and the timer that ends it. */
    unsigned unreadable = 0;
    sd_event_source* unreadable_timer = nullptr;

    /** The classes that have had objects here, to find one by its interface name. */
    std::vector<const gantry::Descriptor*> classes;

    /** The calls that are answered later, newest first, their number and its limit. */
    GANTRY_call* newest_call = nullptr;
    std::uint32_t open_calls = 0;
    std::uint32_t max_open_calls = 1024;

    /** The object managers at paths that the host chose, newest first. */
    gantry::RootManager* root_managers = nullptr;

    /** The well-known names that the bus has granted and whose loss it hasn't reported, newest
     * last, and the slot that receives such reports. The host owns the texts. */
    std::vector<const char*> granted_names;
    sd_bus_slot* name_lost = nullptr;

    /** Set once GANTRY_instance_on_write was called for some object. */
    bool hears_writes = false;

    /** The object that the last creating function published, or its errno. */
    GANTRY_instance* last_created = nullptr;
    int create_error = ENOENT;
};

GANTRY_API void GANTRY_cpp_context_new(GANTRY_cpp_context** out);
GANTRY_API void GANTRY_cpp_context_free(GANTRY_cpp_context** context);
GANTRY_API void GANTRY_cpp_context_set_service(GANTRY_cpp_context* context, char* name);
GANTRY_API void GANTRY_cpp_context_get_user_private(GANTRY_cpp_context* context, void** out);
GANTRY_API void GANTRY_cpp_context_set_user_private(GANTRY_cpp_context* context,
                                                    void* user_private);

/** The connection under a bus object, without a further reference. */
GANTRY_API sd_bus* GANTRY_get_sd_bus(sdbusplus::bus_t& bus);
