#include "announcement.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "thread_context.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <sdbusplus/message.hpp>
#include <string>
#include <utility>
#include <vector>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "announcement";

/** Changes that wait for the bus to read: for an object's path and interface, the members. Owned by
 *  the event source that has them sent. */
struct NotedChanges
{
    explicit NotedChanges(GANTRY_cpp_context& stalled) : context(stalled)
    {
    }

    GANTRY_cpp_context& context;
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> members;
};

std::uint64_t queued_messages(sd_bus* bus)
{
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(bus, &queued);
    return queued;
}

int emit(sd_bus* bus, const char* path, const char* interface, char** members)
{
    const InAnnouncement announcing;
    // sd-bus runs the getters, hence the carrier.
    return ExceptionRelay::enter(
        [=] { return sd_bus_emit_properties_changed_strv(bus, path, interface, members); });
}

/** Announces what was noted. */
void send(NotedChanges& noted)
{
    auto& context = noted.context;
    const auto changes = std::move(noted.members);
    // What changes from here on, in a getter say, is announced or noted anew.
    context.state->pending_changes = sd_event_source_disable_unref(context.state->pending_changes);
    for (const auto& [object, members] : changes)
    {
        std::vector<char*> names;
        for (const auto& member : members)
        {
            names.push_back(const_cast<char*>(member.c_str())); // sd-bus only reads it
        }
        names.push_back(nullptr);
        const auto& [path, interface] = object;
        const int result =
            emit(GANTRY_get_sd_bus(context.bus), path.c_str(), interface.c_str(), names.data());
        // ENOENT: the object was freed meanwhile.
        if (result < 0 && result != -ENOENT && !ExceptionRelay::is_relaying())
        {
            GANTRY_LOG(log::failed, "the noted changes of [%s] at [%s] failed, rv=%d",
                       interface.c_str(), path.c_str(), result);
        }
    }
}

/** sd-event calls it after every iteration that dispatched something, which writing to the bus is.
 */
int on_progress(sd_event_source* /*source*/, void* data)
{
    auto& noted = *static_cast<NotedChanges*>(data);
    return bus_boundary(
        [&noted]
        {
            if (queued_messages(GANTRY_get_sd_bus(noted.context.bus)) < relieved_queue)
            {
                send(noted);
            }
            return 0;
        },
        as_handled);
}

/** Whether changes are to be noted. Has them sent later, when this is the first. */
bool is_stalled(GANTRY_cpp_context& context)
{
    if (context.state->pending_changes != nullptr)
    {
        return true;
    }
    const auto queued = queued_messages(GANTRY_get_sd_bus(context.bus));
    if (queued < stalled_queue)
    {
        return false;
    }
    auto noted = std::make_unique<NotedChanges>(context);
    if (sd_event_add_post(context.event.get(), &context.state->pending_changes, on_progress,
                          noted.get()) < 0)
    {
        return false;
    }
    sd_event_source_set_destroy_callback(context.state->pending_changes, [](void* owned)
                                         { delete static_cast<NotedChanges*>(owned); });
    static_cast<void>(noted.release());
    GANTRY_LOG(log::fault, "changes wait, dbus has %lu messages in write queue", queued);
    return true;
}

void note(GANTRY_cpp_context& context, const char* path, const char* interface, const char* member)
{
    auto& noted =
        *static_cast<NotedChanges*>(sd_event_source_get_userdata(context.state->pending_changes));
    auto& members = noted.members[{path, interface}];
    if (std::find(members.begin(), members.end(), member) == members.end())
    {
        members.emplace_back(member);
    }
}

} // namespace

void announce(Object& object, const Property<Object>& row)
{
    auto& interface = object.server_interface;
    auto* context = own_context();
    if (context != nullptr && is_stalled(*context))
    {
        // A message of the interface has its connection, which may be another than the context's.
        auto message = interface.new_signal(row.member);
        if (sd_bus_message_get_bus(message.get()) == GANTRY_get_sd_bus(context->bus))
        {
            note(*context, interface.path().c_str(), row.header().member, row.member);
            return;
        }
    }
    const InAnnouncement announcing;
    // sd-bus runs the property's getter, hence the carrier.
    ExceptionRelay::enter([&interface, &row] { interface.property_changed(row.member); });
}

void announce(GANTRY_cpp_context& context, const char* path, const char* interface, char** members)
{
    if (is_stalled(context))
    {
        for (; *members != nullptr; ++members)
        {
            note(context, path, interface, *members);
        }
        return;
    }
    throw_if_failed(emit(GANTRY_get_sd_bus(context.bus), path, interface, members),
                    "sd_bus_emit_properties_changed_strv");
}

} // namespace gantry
