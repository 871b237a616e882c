#include "announcement.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "thread_context.hpp"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <ctime>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

namespace gantry
{

[[gnu::tls_model("initial-exec")]] constinit thread_local std::size_t waiting_changes = 0;

namespace
{

constexpr char source_stem[] = "announcement";

using Change = PendingChanges::Change;

std::uint64_t queued_messages(GANTRY_cpp_context& context)
{
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(GANTRY_get_sd_bus(context.bus), &queued);
    return queued;
}

Object& object_of(const Change& change)
{
    return *static_cast<Object*>(change.subject);
}

/** Sends a PropertiesChanged. It isn't left to sd-bus, which would look up each property by its
 *  name: that costs more than the rest. */
int emit(GANTRY_cpp_context& context, const Change& change)
{
    auto& object = object_of(change);
    auto* const bus = GANTRY_get_sd_bus(context.bus);
    const char* const interface = change.header->member;
    const auto* const entries = property_entries(*change.header);
    const InCallback announcing;
    const auto make_and_send = [&]
    {
        sd_bus_message* made = nullptr;
        const auto& path = object.server_interface.path();
        int result = sd_bus_message_new_signal(
            bus, &made, path.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged");
        const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> signal(
            made, sd_bus_message_unref);
        if (result < 0)
        {
            return result;
        }
        sd_bus_message_append_basic(made, SD_BUS_TYPE_STRING, interface);
        sd_bus_message_open_container(made, SD_BUS_TYPE_ARRAY, "{sv}");
        for (std::size_t place = 1; entries[place].type != _SD_BUS_VTABLE_END; ++place)
        {
            if (change.rows[place] && (result = append_property(made, bus, path.c_str(), interface,
                                                                entries[place], &object)) < 0)
            {
                return result;
            }
        }
        sd_bus_message_close_container(made);
        sd_bus_message_append(made, "as", 0);
        return sd_bus_send(bus, made, nullptr);
    };
    return ExceptionRelay::enter(make_and_send);
}

void send(GANTRY_cpp_context& context, const Change& change)
{
    if (change.tell)
    {
        change.tell();
        return;
    }
    const int result = emit(context, change);
    if (result < 0 && !ExceptionRelay::is_relaying() &&
        context.state->lost_changes.admit(context.event.get()))
    {
        const auto& path = object_of(change).server_interface.path();
        GANTRY_LOG(log::failed, "the changes of [%s] at [%s] that waited failed, rv=%d",
                   change.header->member, path.c_str(), result);
    }
}

/** Sends all that waits, and then throws the first exception of a getter. */
void send_changes(GANTRY_cpp_context& context)
{
    auto& changes = context.state->changes;
    std::exception_ptr failure;
    Change change;
    // What a getter changes meanwhile is announced at once, or waits behind these changes.
    for (auto count = changes.size(); count > 0 && changes.take_first(change); --count)
    {
        try
        {
            send(context, change);
        }
        catch (const std::exception&)
        {
            failure = failure ? failure : std::current_exception();
        }
    }
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

void send_changes_and_log(GANTRY_cpp_context& context) noexcept
{
    try
    {
        send_changes(context);
    }
    catch (const std::exception& failure)
    {
        GANTRY_LOG_EXCEPTION(failure.what());
    }
}

/** Runs again while changes wait for the write queue, which may be written without an event. */
int on_timer(sd_event_source* source, std::uint64_t /*time*/, void* data);

constexpr std::uint64_t period = 50'000;

/** Has on_timer() check the write queue. Returns false if memory is too short. */
bool start_timer(GANTRY_cpp_context& context)
{
    auto& timer = context.state->changes.timer;
    return timer != nullptr ||
           sd_event_add_time_relative(context.event.get(), &timer, CLOCK_MONOTONIC, period, 0,
                                      on_timer, &context) >= 0;
}

int on_timer(sd_event_source* /*source*/, std::uint64_t /*time*/, void* data)
{
    auto& context = *static_cast<GANTRY_cpp_context*>(data);
    auto& changes = context.state->changes;
    changes.timer = sd_event_source_disable_unref(changes.timer);
    return bus_boundary(
        [&]
        {
            // A host with its own event loop may hold changes beyond the end of a callback.
            if (changes.holds == 0)
            {
                send_due_changes(context);
                if (!changes.is_empty())
                {
                    start_timer(context);
                }
            }
            return 0;
        },
        as_handled);
}

/** Whether the bus daemon doesn't read. If so, the timer checks the write queue from now on. */
bool is_stalled(GANTRY_cpp_context& context)
{
    const auto queued = queued_messages(context);
    if (queued < stalled_queue || !start_timer(context))
    {
        return false;
    }
    if (context.state->changes.is_empty())
    {
        GANTRY_LOG(log::fault, "changes wait, dbus has %lu messages in write queue", queued);
    }
    return true;
}

/** Whether a change must wait. */
bool must_wait(GANTRY_cpp_context& context)
{
    const auto& changes = context.state->changes;
    return changes.holds > 0 || !changes.is_empty() || is_stalled(context);
}

/** Has changes wait. Returns false if they can't, since the object has another connection or memory
 *  is too short. */
bool note(GANTRY_cpp_context& context, Object& object, const Property<Object>& header,
          const RowSet& rows)
try
{
    auto& changes = context.state->changes;
    auto* change = changes.find(&object);
    if (change == nullptr)
    {
        auto&& bus = object.server_interface.bus();
        if (GANTRY_get_sd_bus(bus) != GANTRY_get_sd_bus(context.bus))
        {
            return false;
        }
        change = &changes.add(&object, &header);
    }
    change->rows |= rows;
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

} // namespace

PendingChanges::PendingChanges() noexcept
{
    waiting_changes = 0;
}

void PendingChanges::count() const noexcept
{
    waiting_changes = positions.size() + (holds > 0 ? 1 : 0);
}

PendingChanges::~PendingChanges()
{
    sd_event_source_disable_unref(timer);
    waiting_changes = 0;
}

Change* PendingChanges::find(const void* subject) noexcept
{
    // A host usually sets several properties of one object before those of the next.
    if (!changes.empty() && changes.back().subject == subject)
    {
        return &changes.back();
    }
    const auto found = positions.find(subject);
    return found != positions.end() ? &*found->second : nullptr;
}

Change& PendingChanges::add(void* subject, const Property<Object>* header)
{
    changes.push_back({subject, header, {}, {}});
    try
    {
        positions.emplace(subject, std::prev(changes.end()));
    }
    catch (...)
    {
        changes.pop_back();
        throw;
    }
    count();
    return changes.back();
}

void PendingChanges::tell_by(Change& change, std::function<void()> tell) noexcept
{
    if (tells++ == 0)
    {
        ++generation;
    }
    change.tell = std::move(tell);
}

bool PendingChanges::take(const void* subject, Change& taken) noexcept
{
    const auto found = positions.find(subject);
    if (found == positions.end())
    {
        return false;
    }
    taken = std::move(*found->second);
    tells -= taken.tell ? 1 : 0;
    changes.erase(found->second);
    positions.erase(found);
    count();
    return true;
}

bool PendingChanges::take_first(Change& taken) noexcept
{
    return !is_empty() && take(changes.front().subject, taken);
}

int append_property(sd_bus_message* signal, sd_bus* bus, const char* path, const char* interface,
                    const sd_bus_vtable& entry, void* object)
{
    const auto& property = entry.x.property;
    sd_bus_error error{};
    sd_bus_message_open_container(signal, SD_BUS_TYPE_DICT_ENTRY, "sv");
    sd_bus_message_append_basic(signal, SD_BUS_TYPE_STRING, property.member);
    sd_bus_message_open_container(signal, SD_BUS_TYPE_VARIANT, property.signature);
    const int result = property.get(bus, path, interface, property.member, signal, object, &error);
    sd_bus_message_close_container(signal);
    sd_bus_message_close_container(signal);
    sd_bus_error_free(&error);
    return result;
}

void announce(Object& object, const Property<Object>& row)
{
    auto* context = own_context();
    if (context != nullptr && row.announces && must_wait(*context) &&
        note(*context, object, row.header(), RowSet().set(row.place)))
    {
        return;
    }
    const InCallback announcing;
    // sd-bus runs the property's getter, whose exception the relay keeps.
    ExceptionRelay::enter([&] { return object.server_interface.property_changed(row.member), 0; });
}

void announce(GANTRY_cpp_context& context, Object& object, const Property<Object>& header,
              const RowSet& rows)
{
    if (must_wait(context) && note(context, object, header, rows))
    {
        return;
    }
    throw_if_failed(emit(context, {&object, &header, rows, {}}), "sd_bus_send");
}

bool must_wait_for_bus(GANTRY_cpp_context& context)
{
    const auto& changes = context.state->changes;
    return (changes.holds == 0 && !changes.is_empty()) || is_stalled(context);
}

bool wait_for_bus(GANTRY_cpp_context& context, void* subject, std::function<void()> tell)
try
{
    auto& changes = context.state->changes;
    auto* waiting = changes.find(subject);
    waiting = waiting != nullptr ? waiting : &changes.add(subject, nullptr);
    if (!waiting->tell)
    {
        changes.tell_by(*waiting, std::move(tell));
        context.state->backpressure.unseen = 1;
    }
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

void end_hold(GANTRY_cpp_context& context)
{
    if (!context.state->changes.is_empty() && !is_stalled(context))
    {
        send_changes(context);
    }
}

void send_last_changes(GANTRY_cpp_context& context) noexcept
{
    context.state->changes.holds = 0;
    send_changes_and_log(context);
}

void send_waiting_changes(GANTRY_cpp_context& context)
{
    auto& changes = context.state->changes;
    if (changes.holds > 0)
    {
        GANTRY_LOG(log::failed, "changes are held while a loop runs, and are sent");
        changes.holds = 0;
        changes.count();
        send_changes(context);
    }
    else if (!changes.is_empty() && queued_messages(context) < relieved_queue)
    {
        send_changes(context);
    }
}

void send_all_waiting_changes() noexcept
{
    if (auto* context = own_context(); context != nullptr)
    {
        send_changes_and_log(*context);
    }
}

void send_waiting_changes_of(const Object& object)
{
    Change change;
    if (auto* context = own_context();
        context != nullptr && context->state->changes.take(&object, change))
    {
        send(*context, change);
    }
}

void forget_waiting_changes_of(const Object& object) noexcept
{
    Change change;
    if (auto* context = own_context(); context != nullptr)
    {
        context->state->changes.take(&object, change);
    }
}

} // namespace gantry
