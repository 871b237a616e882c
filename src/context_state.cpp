/*
 * How a context is made, and in which order it is destroyed.
 */
#include "context_state.hpp"

#include "connection.hpp"
#include "deferred_destruction.hpp"
#include "instance.hpp"
#include "log.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <utility>

bool GANTRY_use_default = true;

namespace
{

constexpr char source_stem[] = "context_state";

} // namespace

GANTRY_cpp_context::GANTRY_cpp_context() :
    bus(gantry::open_bus(GANTRY_use_default)),
    event(sdeventplus::Event::get_default(&sdeventplus::internal::sdevent_impl)),
    state(std::make_unique<gantry::ContextState>())
{
    state->is_private = !GANTRY_use_default;
    // Throws if the connection couldn't be opened.
    sd_bus* connection = GANTRY_get_sd_bus(bus);
    gantry::flush(connection);
    gantry::see_messages(*this);
    const int result = sd_bus_attach_event(connection, event.get(), SD_EVENT_PRIORITY_NORMAL);
    if (sd_bus_get_event(connection) != event.get())
    {
        GANTRY_LOG(gantry::log::failed, "sd_bus_attach_event failed, rv=%d%s", result,
                   result == -ESTALE ? ": the thread's event loop has exited" : "");
    }
}

GANTRY_cpp_context::~GANTRY_cpp_context()
{
    running = false;
    gantry::send_last_changes(*this);
    sd_event_source_disable_unref(state->destruction);
    gantry::close_calls(*this, nullptr);
    gantry::destroy_freed_objects(*this);
    while (!tracker.empty())
    {
        // Removed from both lists first, so that no function that the deleter calls finds the
        // object.
        const auto newest = tracker.back();
        tracker.pop_back();
        if (auto* record = state->objects.newest();
            record != nullptr && record->the_service == newest.object)
        {
            state->objects.remove(*record);
        }
        newest.deleter(newest.object);
    }
    // The records that are left are of the host's own objects. GANTRY_cpp_unpublish() releases
    // them.
    while (auto* own = state->objects.newest())
    {
        state->objects.remove(*own);
        own->vctx = nullptr;
    }
    delete std::exchange(object_manager, nullptr);
    state->root_managers.clear();
    state->filter.reset();
    service_name = nullptr;
    user_private = nullptr;
    state->subscriptions.clear();
    for (auto& match : signal_matches)
    {
        match.reset();
    }
    // Answers and signals may still be queued. If this was the last use of a shared connection, its
    // release would drop them.
    gantry::write_what_is_left(*this);
    // The members' order releases the event reference next and the connection last.
}
