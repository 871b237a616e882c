/*
 * What a context has besides the fields that hosts see: one struct, so that each file of the frame
 * keeps its part of a context here and none of it shows in a host's header.
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
    // Loops and destruction (deferred_destruction.hpp).

    /** A stop was requested and the outermost loop hasn't returned yet. Signal handlers set it. */
    std::atomic<bool> stopping{false};
    static_assert(std::atomic<bool>::is_always_lock_free);

    /** The number of the context's loops on the stack; above 1 when a callback entered one. */
    std::uint32_t loops = 0;

    /** The context was freed while it was in use; then `destroy` destroys it. */
    bool destroy_when_idle = false;
    void (*destroy)(GANTRY_cpp_context* context) = nullptr;

    /** The newest object that was freed inside a callback; its `older` is the next one. */
    GANTRY_instance* freed_objects = nullptr;

    /** The event source that destroys what was freed; null before the first use. */
    sd_event_source* destruction = nullptr;

    // Objects (object.hpp, object_manager.hpp).

    ObjectIndex objects;

    /** Entries of `tracker` whose object was freed. */
    std::size_t freed_entries = 0;

    /** What the last creating function published, and why not. */
    GANTRY_instance* last_created = nullptr;
    int create_error = ENOENT;

    /** The objects whose hosts have asked to hear of clients' writes. */
    std::unordered_map<const void*, GANTRY_instance*> write_listeners;

    /** The object managers at paths that the host chose, oldest first. */
    std::vector<std::unique_ptr<RootManager>> root_managers;

    /** Whether the library is making one of its objects. */
    bool is_creating = false;

    /** The paths of the objects that the host made itself (connection.cpp). */
    std::unordered_multimap<const void*, std::string> own_paths;

    /** The classes of those that it published (own_object.cpp). */
    std::unordered_map<const sd_bus_vtable*, Descriptor> own_classes;

    /** The interfaces that have left a path and whose InterfacesRemoved waits. */
    std::map<std::string, std::vector<const char*>> removed_interfaces;

    // The connection (connection.hpp).

    /** The well-known names that the bus has granted and not told the loss of, newest last. A text
     * stays where it is for as long as the name is owned. */
    std::list<std::string> granted_names;

    LimitedLog lost_changes{1, "changes could not be announced"};

    /** The filter that sees each message that arrives. */
    sd_bus_slot* filter = nullptr;

    /** Replies that clients don't read (backpressure.hpp). */
    Backpressure backpressure;

    /** Whether no one else uses the connection. */
    bool is_private = false;

    /** Called when the connection is lost; null for none. */
    void (*on_disconnect)(GANTRY_cpp_context* context, void* data) = nullptr;
    void* disconnect_data = nullptr;
    std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)> disconnected{nullptr,
                                                                            sd_bus_slot_unref};

    /** The filter that sees reads before sd-bus does (read_listeners.cpp); null before the first
     *  object whose host wants to hear of them. */
    std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)> read_filter{nullptr,
                                                                           sd_bus_slot_unref};

    // Changes that wait (announcement.hpp).

    PendingChanges changes;

    // Signals (signal.hpp, subscription.hpp).

    LimitedLog unreadable_signals{9, "signals could not be read"};
    /** Those that hosts can end, by their serials. One that ends while its callback runs is held by
     *  the frame that called it. */
    std::map<std::uintptr_t, std::shared_ptr<HostSubscription>> subscriptions;

    // Calls that are answered later (deferred_call.hpp).

    DeferredCalls calls;

    // Who calls (credentials.hpp).

    AskingBus asking_bus{nullptr, sd_bus_close_unref};
};

} // namespace gantry
