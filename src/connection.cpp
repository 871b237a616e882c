#include "connection.hpp"

#include "backpressure.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "log.hpp"
#include "thread_context.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <list>
#include <memory>
#include <new>
#include <sdbusplus/exception.hpp>
#include <string>
#include <utility>
#include <vector>

namespace
{

constexpr char source_stem[] = "connection";

/** Gets the connection of a bus object, which gives it only to its friends. */
struct Connection : private sdbusplus::bus::details::bus_friend
{
    static sd_bus* of(sdbusplus::bus_t& bus)
    {
        return get_busp(bus);
    }
};

/**
 * The text of a failure for a client: the failed call and sd-bus's message. Versions of sdbusplus
 * differ in whether description() has the call; what() is "call: error name: message" in all.
 */
std::string text_of(const sdbusplus::exception::SdBusError& failure)
{
    std::string text = failure.what();
    const auto name = std::string(": ") + failure.name();
    if (const auto found = text.find(name); found != std::string::npos)
    {
        text.erase(found, name.size());
    }
    return text;
}

/** sd-bus calls it when an object's slot is released. */
void forget_own_object(void* object)
{
    if (auto* context = gantry::own_context(); context != nullptr)
    {
        auto& paths = context->state->own_paths;
        if (const auto found = paths.find(object); found != paths.end())
        {
            paths.erase(found);
        }
    }
}

/**
 * Keeps the path of an object that the host makes itself until its slot is released. Root managers
 * need the path, since sd-bus lists no object below one of the library's, which has an object
 * manager of its own.
 */
void note_own_object(sd_bus* bus, sd_bus_slot* slot, const char* path, const void* object)
{
    auto* context = gantry::own_context();
    if (context != nullptr && !context->state->is_creating &&
        GANTRY_get_sd_bus(context->bus) == bus)
    {
        context->state->own_paths.emplace(object, path);
        sd_bus_slot_set_destroy_callback(slot, forget_own_object);
    }
}

/** libsystemd as sdbusplus calls it: keeps the paths of the host's own objects, makes the text of a
 *  client's error, and logs a lost announcement, which sdbusplus ignores. */
class LoggedBus final : public sdbusplus::SdBusImpl
{
  public:
    int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                                 const char* interface, const sd_bus_vtable* vtable,
                                 void* userdata) override
    {
        const int result =
            SdBusImpl::sd_bus_add_object_vtable(bus, slot, path, interface, vtable, userdata);
        try
        {
            if (result >= 0)
            {
                note_own_object(bus, *slot, path, userdata);
            }
            return result;
        }
        catch (const std::bad_alloc&)
        {
            *slot = sd_bus_slot_unref(*slot); // the caller doesn't have it yet
            return -ENOMEM;
        }
    }

    /** Gives the client text_of() the SdBusError being handled, if `message` is that error's. Any
     *  text may come from a host, so it is repaired. */
    int sd_bus_error_set(sd_bus_error* error, const char* name, const char* message) override
    {
        std::string text = message != nullptr ? message : "";
        if (std::current_exception())
        {
            try
            {
                throw;
            }
            catch (const sdbusplus::exception::SdBusError& failure)
            {
                text = message == failure.description() ? text_of(failure) : text;
            }
            catch (...)
            {
                // Another failure doesn't name a call.
            }
        }
        return SdBusImpl::sd_bus_error_set(error, name, gantry::for_bus(text).c_str());
    }

    int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path, const char* interface,
                                            const char** names) override
    {
        const int result =
            SdBusImpl::sd_bus_emit_properties_changed_strv(bus, path, interface, names);
        auto* context = gantry::own_context();
        // EDOM: the property never announces a change. The log is limited, since a lost bus refuses
        // every announcement.
        if (result < 0 && result != -EDOM && !gantry::ExceptionRelay::is_relaying() &&
            (context == nullptr || context->state->lost_changes.admit(context->event.get())))
        {
            GANTRY_LOG(gantry::log::failed, "failed for [%s] of [%s], rv=%d", *names, path, result);
        }
        return result;
    }
};

// Trivially destructible, so a thread that exits after static destruction can still use it.
constinit LoggedBus logged_bus;

constexpr char bus_name[] = "org.freedesktop.DBus";
constexpr char local_name[] = "org.freedesktop.DBus.Local";

int on_disconnected(sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/)
{
    auto& context = *static_cast<GANTRY_cpp_context*>(data);
    return gantry::bus_boundary(
        [&context]
        {
            context.state->on_disconnect(&context, context.state->disconnect_data);
            return 0;
        },
        gantry::as_handled);
}

/** How many InCallback objects are on the thread's stack. */
constinit thread_local unsigned callbacks = 0;

/** The oldest grant of a name; the end if the name isn't owned. */
auto find_grant(std::list<std::string>& grants, const char* name)
{
    return std::find(grants.begin(), grants.end(), name);
}

/** Handles NameLost, which the bus sends to the former owner alone. It ends the oldest grant of the
 * name, since the bus may have granted the name again before the message is read. */
[[gnu::noinline]] int on_name_lost(sd_bus_message* message, GANTRY_cpp_context& context)
{
    const char* name = nullptr;
    if (!gantry::is_from_bus(message) ||
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &name) <= 0)
    {
        return 0;
    }
    auto& grants = context.state->granted_names;
    if (const auto grant = find_grant(grants, name); grant != grants.end())
    {
        grants.erase(grant);
        if (find_grant(grants, name) == grants.end())
        {
            GANTRY_LOG(gantry::log::failed, "the connection has lost the name [%s]", name);
        }
    }
    return 0;
}

/** Sees each message that arrives. */
int on_message(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    auto& pressure = *static_cast<gantry::Backpressure*>(data);
    if (sd_bus_message_is_signal(message, bus_name, "NameLost") > 0)
    {
        return on_name_lost(message, *pressure.context);
    }
    return --pressure.unseen == 0 ? gantry::refuse_if_too_much_waits(message, pressure) : 0;
}

} // namespace

void gantry::see_messages(GANTRY_cpp_context& context)
{
    auto& pressure = context.state->backpressure;
    pressure.context = &context;
    sd_bus_slot* slot = nullptr;
    const int result =
        sd_bus_add_filter(GANTRY_get_sd_bus(context.bus), &slot, on_message, &pressure);
    throw_if_failed(result, "sd_bus_add_filter");
    context.state->filter.reset(slot);
}

bool gantry::is_from_bus(sd_bus_message* message) noexcept
{
    const char* const sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::strcmp(sender, bus_name) == 0;
}

sd_bus* GANTRY_get_sd_bus(sdbusplus::bus_t& bus)
{
    return Connection::of(bus);
}

sdbusplus::bus_t gantry::open_bus(bool is_shared)
{
    sd_bus* opened = nullptr;
    const int result = is_shared ? sd_bus_default_system(&opened) : sd_bus_open_system(&opened);
    if (result < 0)
    {
        // libsystemd doesn't report which address it tried.
        const char* address = secure_getenv("DBUS_SYSTEM_BUS_ADDRESS");
        GANTRY_LOG(log::failed, "the system bus can't be opened at [%s], rv=%d",
                   address != nullptr ? address : "its standard address", result);
    }
    const std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> held{opened, sd_bus_unref};
    // The constructor of the bus object reads the connection's unique name, which waits for the
    // bus, and fails if a signal to the process interrupts it. So the wait is made here.
    sd_id128_t ignored;
    uninterrupted([&] { return sd_bus_get_bus_id(opened, &ignored); });

    sdbusplus::bus_t bus(opened, &logged_bus);
    // A private connection is closed with its last use; a shared one is left to its other users.
    bus.set_should_close(!is_shared);
    return bus;
}

int gantry::request_name(GANTRY_cpp_context& context, const char* name)
{
    constexpr auto flags = SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT;
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    auto& grants = context.state->granted_names;
    std::list<std::string> granted{name};
    int calls = 0;
    const int result = uninterrupted(
        [&]
        {
            ++calls;
            return sd_bus_request_name(bus, name, flags);
        });
    if (result < 0 && result != -EALREADY)
    {
        GANTRY_LOG(log::failed, "the bus refused the name [%s], rv=%d", name, result);
        return result;
    }
    // A grant that goes on keeps its text, which the host may have.
    const auto grant = find_grant(grants, name);
    const bool goes_on = result == -EALREADY && grant != grants.end();
    goes_on ? grants.splice(grants.end(), grants, grant) : grants.splice(grants.end(), granted);
    // After an interrupted call, -EALREADY means that the bus granted the name for that call.
    return calls > 1 && result == -EALREADY ? 0 : result;
}

const char* gantry::owned_name(GANTRY_cpp_context& context) noexcept
{
    const auto& grants = context.state->granted_names;
    const bool is_open = sd_bus_is_open(GANTRY_get_sd_bus(context.bus)) > 0;
    return is_open && !grants.empty() ? grants.back().c_str() : nullptr;
}

void gantry::write_what_is_left(GANTRY_cpp_context& context) noexcept
{
    using std::chrono::steady_clock;
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    std::uint64_t left = 0;
    if (sd_bus_get_n_queued_write(bus, &left) < 0 || left == 0)
    {
        return;
    }
    // A flush has no time limit. A call has one, and while it waits for its reply all that is
    // queued before it is written.
    const auto end = steady_clock::now() + std::chrono::seconds(1);
    std::uint64_t calls = 0;
    int result = -EINTR;
    while (result == -EINTR && steady_clock::now() < end)
    {
        sd_bus_message* ping = nullptr;
        result = sd_bus_message_new_method_call(bus, &ping, bus_name, "/",
                                                "org.freedesktop.DBus.Peer", "Ping");
        if (result >= 0)
        {
            const std::chrono::microseconds rest =
                std::chrono::ceil<std::chrono::microseconds>(end - steady_clock::now());
            result =
                sd_bus_call(bus, ping, static_cast<std::uint64_t>(rest.count()), nullptr, nullptr);
            sd_bus_message_unref(ping);
            ++calls;
        }
    }
    // The calls come last, and stay queued if the bus takes none.
    sd_bus_get_n_queued_write(bus, &left);
    if (left > calls)
    {
        GANTRY_LOG(log::failed, "%lu messages are %s that the bus didn't take in a second",
                   left - calls,
                   context.state->is_private ? "dropped" : "left to the shared connection");
    }
    if (left > 0 && context.state->is_private)
    {
        sd_bus_close(bus); // its release would flush it without a limit
    }
}

void gantry::set_on_disconnect(GANTRY_cpp_context& context,
                               void (*lost)(GANTRY_cpp_context* context, void* data), void* data)
{
    auto& state = *context.state;
    state.disconnected = nullptr;
    state.on_disconnect = lost;
    state.disconnect_data = data;
    if (lost == nullptr)
    {
        return;
    }
    sd_bus_slot* slot = nullptr;
    // sd-bus itself sends this signal, so the bus is not asked for it.
    const int result = sd_bus_match_signal(GANTRY_get_sd_bus(context.bus), &slot, local_name,
                                           "/org/freedesktop/DBus/Local", local_name,
                                           "Disconnected", on_disconnected, &context);
    throw_if_failed(result, "sd_bus_match_signal");
    state.disconnected.reset(slot);
}

void gantry::flush(sd_bus* bus)
{
    throw_if_failed(uninterrupted([bus] { return sd_bus_flush(bus); }), "sd_bus_flush");
}

void gantry::end_connection(GANTRY_cpp_context& context, int open)
{
    if (int code = 0; sd_event_get_exit_code(context.event.get(), &code) < 0)
    {
        sd_bus* bus = GANTRY_get_sd_bus(context.bus);
        // Dispatches what a lost connection still has, so that pending calls fail and the host's
        // function for the loss is called before the loop ends.
        ExceptionRelay::enter(
            [bus, open]
            {
                while (open <= 0 && sd_bus_process(bus, nullptr) > 0)
                {
                }
                return 0;
            });
        throw_if_failed(open < 0 ? open : -ENOTCONN,
                        open > 0 ? "sd_bus_attach_event" : "sd_bus_is_open");
    }
}

bool gantry::is_in_callback(GANTRY_cpp_context& context) noexcept
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    return callbacks > 0 || sd_bus_get_current_message(bus) != nullptr ||
           sd_bus_get_current_slot(bus) != nullptr;
}

gantry::InCallback::InCallback() noexcept
{
    ++callbacks;
}

gantry::InCallback::~InCallback()
{
    --callbacks;
}
