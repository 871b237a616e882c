/*
 * The context as C++ code sees it: the record itself, and the typed names of its operations. Each
 * typed operation is the one of <gantry/context.h> without `cpp_`, and its log carries this name.
 */
#pragma once

#include <gantry/context.h>

#include <sdbusplus/bus.hpp>
#include <sdbusplus/bus/match.hpp>
#include <sdbusplus/server/manager.hpp>
#include <sdeventplus/event.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace gantry
{
struct Descriptor;
struct FreedObject;
} // namespace gantry

struct GANTRY_cpp_context
{
    /** One published object. Its deleter is its class's own, and so also tells the class. */
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
     * Looks at the connection and reports to the log: is this the connection's thread, how long
     * ago was the last check, how long are the queues. Changes nothing but last_serviced.
     */
    GANTRY_API void sanity_check() noexcept;

    sdbusplus::bus::bus bus;
    sdeventplus::Event event;

    /** Null: no name chosen yet. Empty: none wanted. The text is the host's. */
    const char* service_name = nullptr;

    /** The object manager added last, unless its object was freed. Earlier ones belong to the
     *  connection. */
    sdbusplus::server::manager::manager* object_manager = nullptr;

    void* user_private = nullptr;

    /** Every object on this context, oldest first. */
    std::vector<Tracked> tracker;

    /** True until destruction begins. */
    bool running = true;

    std::vector<std::unique_ptr<sdbusplus::bus::match::match>> signal_matches;

    /** Seconds of CLOCK_MONOTONIC at the last health check; 0 before the first. */
    std::int64_t last_serviced = 0;

    // The health check's limits; each is still healthy itself.
    std::int32_t delta_log_seconds = 3;
    std::int32_t not_serviced_seconds = 60;
    std::uint64_t max_read_queue = 100;
    std::uint64_t max_write_queue = 100;

    // The library's own.

    /** A stop that no loop has answered yet. Signal handlers write it. */
    std::atomic<bool> stopping{false};
    static_assert(std::atomic<bool>::is_always_lock_free);

    /** Loops of this context on the stack: above 1 when a callback enters one. */
    std::uint32_t loops = 0;

    /** Null until the context is freed while it is in use; then what destroys it afterwards. */
    void (*freed)(GANTRY_cpp_context* context) = nullptr;

    /** Objects that were freed inside a callback and are destroyed after it. */
    gantry::FreedObject* freed_objects = nullptr;

    /** The event source that destroys what was freed; null before the first use. */
    sd_event_source* deferral = nullptr;

    /** The classes that have had objects here, to find one by its interface name. */
    std::vector<const gantry::Descriptor*> classes;
};

GANTRY_API void GANTRY_cpp_context_new(GANTRY_cpp_context** out);
GANTRY_API void GANTRY_cpp_context_free(GANTRY_cpp_context** context);
GANTRY_API void GANTRY_cpp_context_set_service(GANTRY_cpp_context* context, char* name);
GANTRY_API void GANTRY_cpp_context_get_user_private(GANTRY_cpp_context* context, void** out);
GANTRY_API void GANTRY_cpp_context_set_user_private(GANTRY_cpp_context* context,
                                                    void* user_private);

/** The connection under a bus object, without a further reference. */
GANTRY_API sd_bus* GANTRY_get_sd_bus(sdbusplus::bus::bus& bus);
