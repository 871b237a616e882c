/*
 * What a context has besides the fields that hosts see. Each file of the library keeps its part of
 * a context in this struct, so that none of it shows in a host's header.
 */
#pragma once

#include "announcement.hpp"
#include "backpressure.hpp"
#include "credentials.hpp"
#include "deferred_call.hpp"
#include "instance.hpp"
#include "limited_log.hpp"
#include "object_index.hpp"
#include "object_manager.hpp"

#include <gantry/context.hpp>

#include <systemd/sd-event.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace gantry
{

struct HostSubscription;

struct ContextState
{
    using Slot = std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)>;

    // Loops and destruction (deferred_destruction.hpp).

    /** Whether a stop was requested and the outermost loop hasn't returned yet. Signal handlers may
     *  set it. */
    std::atomic<bool> stopping{false};
    static_assert(std::atomic<bool>::is_always_lock_free);

    /** The number of the context's loops on the stack; above 1 when a callback entered one. */
    std::uint32_t loops = 0;

    /** Whether the context was freed while it was in use. It is destroyed once it is idle. */
    bool destroy_when_idle = false;
    /** Destroys the context, when it is idle or its thread exits. */
    void (*destroy)(GANTRY_cpp_context* context) = nullptr;

    /** The list of the objects that were freed inside a callback, newest first, linked by `older`.
     */
    GANTRY_instance* freed_objects = nullptr;

    /** The event source that destroys what was freed; null before the first use. */
    sd_event_source* destruction = nullptr;

    // Objects (object.hpp, object_manager.hpp).

    ObjectIndex objects;

    /** How many entries of `tracker` have lost their object. */
    std::size_t freed_entries = 0;

    /** What the last creating function published, null if it failed or the object was freed; and
     *  the errno of that function. */
    GANTRY_instance* last_created = nullptr;
    int create_error = ENOENT;

    /** The records of the objects that have a `written` callback, by object. */
    std::unordered_map<const void*, GANTRY_instance*> write_listeners;

    /** The object managers at paths that the host chose, oldest first. */
    std::vector<std::unique_ptr<RootManager>> root_managers;

    /** Whether the library is making one of its objects. */
    bool is_creating = false;

    /** The paths of the objects that the host made itself (connection.cpp). */
    std::unordered_multimap<const void*, std::string> own_paths;

    /** The classes of those objects of its own that the host published (own_object.cpp). */
    std::unordered_map<const sd_bus_vtable*, Descriptor> own_classes;

    /** By path, the interfaces whose InterfacesRemoved waits. */
    std::map<std::string, std::vector<const char*>> removed_interfaces;

    // The connection (connection.hpp).

    /** The well-known names that the bus has granted and whose loss it hasn't reported, newest
     * last. A list, since hosts get pointers to the texts. */
    std::list<std::string> granted_names;

    LimitedLog lost_changes{1, "changes could not be announced"};

    /** The filter that sees each message that arrives. */
    Slot filter{nullptr, sd_bus_slot_unref};

    /** Replies that clients don't read (backpressure.hpp). */
    Backpressure backpressure;

    /** Whether the context opened the connection for itself alone. */
    bool is_private = false;

    /** Called when the connection is lost; null for none. */
    void (*on_disconnect)(GANTRY_cpp_context* context, void* data) = nullptr;
    void* disconnect_data = nullptr;
    Slot disconnected{nullptr, sd_bus_slot_unref};

    /** The filter that sees reads before sd-bus dispatches them (read_listeners.cpp); null until an
     *  object gets a `read` callback. */
    Slot read_filter{nullptr, sd_bus_slot_unref};

    // Changes that wait (announcement.hpp).

    PendingChanges changes;

    // Signals (signal.hpp, subscription.hpp).

    LimitedLog unreadable_signals{9, "signals could not be read"};
    /** The subscriptions that hosts can end, by serial. One that is ended while its callback runs
     *  is kept alive by the function that called it. */
    std::map<std::uintptr_t, std::shared_ptr<HostSubscription>> subscriptions;

    // Calls that are answered later (deferred_call.hpp).

    DeferredCalls calls;

    // Who calls (credentials.hpp).

    AskingBus asking_bus{nullptr, sd_bus_close_unref};
};

} // namespace gantry
