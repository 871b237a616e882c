#include "subscription.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "serial.hpp"
#include "thread_context.hpp"

#include <cerrno>
#include <string>
#include <utility>

namespace gantry
{
namespace
{

constexpr char bus_name[] = "org.freedesktop.DBus";

HostSubscription* find(const GANTRY_subscription* handle) noexcept
{
    auto* context = own_context();
    if (context == nullptr)
    {
        return nullptr;
    }
    auto& subscriptions = context->state->subscriptions;
    const auto found = subscriptions.find(reinterpret_cast<std::uintptr_t>(handle));
    return found != subscriptions.end() ? found->second.get() : nullptr;
}

bool is_heard(const HostSubscription& subscription, sd_bus_message* signal) noexcept
{
    const char* const sender = sd_bus_message_get_sender(signal);
    return !subscription.target.context->state->destroy_when_idle &&
           (!subscription.has_owner || (sender != nullptr && subscription.owner == sender));
}

int on_signal(sd_bus_message* signal, void* data, sd_bus_error* /*error*/)
{
    auto& subscription = *static_cast<HostSubscription*>(data);
    if (!is_heard(subscription, signal))
    {
        return 0;
    }
    const auto held = subscription.shared_from_this();        // the callback may end it
    auto* const outer = std::exchange(held->present, signal); // a callback may run a loop
    const auto pass = [&]
    {
        sdbusplus::message_t arrived(signal);
        held->target.pass_on(*held, arrived);
        return 0;
    };
    const int result = bus_boundary(pass, as_handled);
    held->present = outer;
    return result;
}

/** Stores the owner's unique name, which is the next value of a message; it is empty if the name
 *  has no owner. */
int take_owner(sd_bus_message* message, HostSubscription& subscription)
{
    const char* owner = "";
    sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &owner);
    return bus_boundary([&] { return subscription.owner = owner, 0; }, as_handled);
}

int on_owner_changed(sd_bus_message* signal, void* data, sd_bus_error* /*error*/)
{
    const bool is_read = is_from_bus(signal) && sd_bus_message_skip(signal, "ss") >= 0;
    return is_read ? take_owner(signal, *static_cast<HostSubscription*>(data)) : 0;
}

int on_owner(sd_bus_message* reply, void* data, sd_bus_error* /*error*/)
{
    const bool is_owned = sd_bus_message_is_method_error(reply, nullptr) == 0;
    return is_owned ? take_owner(reply, *static_cast<HostSubscription*>(data)) : 1;
}

/** Has the bus report who owns the well-known name of the sender, now and later. */
void follow_owner(HostSubscription& subscription, const std::string& name)
{
    auto& context = *subscription.target.context;
    const auto rule = std::string("type='signal',sender='") + bus_name +
                      "',path='/org/freedesktop/DBus',interface='" + bus_name +
                      "',member='NameOwnerChanged',arg0='" + name + "'";
    sd_bus_slot* slot = nullptr;
    throw_if_failed(add_match(context, rule, on_owner_changed, &subscription, &slot),
                    "sd_bus_add_match");
    subscription.owner_match.reset(slot);
    subscription.has_owner = true;
    const int result = sd_bus_call_method_async(GANTRY_get_sd_bus(context.bus), &slot, bus_name,
                                                "/org/freedesktop/DBus", bus_name, "GetNameOwner",
                                                on_owner, &subscription, "s", name.c_str());
    throw_if_failed(result, "sd_bus_call_method_async");
    subscription.owner_question.reset(slot);
}

/** Whether the text is null or `is_valid`; logs it if it isn't. What is valid needs no escape in a
 * match rule. */
bool check(const Place& place, const char* what, const char* text, int (*is_valid)(const char*))
{
    const bool holds = text == nullptr || is_valid(text) > 0;
    if (!holds)
    {
        GANTRY_LOG_AT(place, log::failed, "a subscription's %s is not valid: [%s]", what, text);
    }
    return holds;
}

void add(std::string& rule, const char* key, const char* value)
{
    if (value != nullptr)
    {
        rule += std::string(",") + key + "='" + value + "'";
    }
}

} // namespace

GANTRY_subscription* HostSubscription::handle() const noexcept
{
    return handle_of<GANTRY_subscription>(serial);
}

void add_subscription(HostSubscription::Target target, const char* interface, const char* member,
                      const GANTRY_match* from, GANTRY_subscription** out, int* error)
{
    GANTRY_subscription* made = nullptr;
    const auto make = [&]
    {
        GANTRY_LOG_AT(target.place, log::trace, "enter");
        const GANTRY_match wanted = from != nullptr ? *from : GANTRY_match{};
        if (!check(target.place, "sender", wanted.sender, sd_bus_service_name_is_valid) ||
            !check(target.place, "path", wanted.path, sd_bus_object_path_is_valid) ||
            !check(target.place, "path_namespace", wanted.path_namespace,
                   sd_bus_object_path_is_valid))
        {
            return already_logged(EINVAL);
        }
        if (target.callback == nullptr ||
            (wanted.path != nullptr && wanted.path_namespace != nullptr))
        {
            GANTRY_LOG_AT(target.place, log::failed, "a subscription has %s",
                          target.callback == nullptr ? "no callback" : "two paths");
            return already_logged(EINVAL);
        }
        target.context = resolve(target.place, target.context);
        if (target.context == nullptr)
        {
            return already_logged(ENOTCONN);
        }
        std::string rule = "type='signal'";
        add(rule, "interface", wanted.any_interface ? nullptr : interface);
        add(rule, "member", member);
        add(rule, "sender", wanted.sender);
        add(rule, "path", wanted.path);
        add(rule, "path_namespace", wanted.path_namespace);

        auto& subscriptions = target.context->state->subscriptions;
        const auto serial = next_serial(subscriptions);
        const auto subscription = std::make_shared<HostSubscription>(target, serial);
        if (wanted.sender != nullptr && *wanted.sender != ':')
        {
            follow_owner(*subscription, wanted.sender);
        }
        sd_bus_slot* slot = nullptr;
        throw_if_failed(add_match(*target.context, rule, on_signal, subscription.get(), &slot),
                        "sd_bus_add_match");
        subscription->match.reset(slot);
        subscriptions.emplace(serial, subscription);
        made = subscription->handle();
        return 0;
    };
    host_boundary(target.place, error, make);
    if (out != nullptr)
    {
        *out = made;
    }
}

} // namespace gantry

void GANTRY_signal_get_sender(GANTRY_subscription* subscription, const char** out)
{
    const auto* found = gantry::find(subscription);
    *out = found != nullptr && found->present != nullptr ? sd_bus_message_get_sender(found->present)
                                                         : nullptr;
}

void GANTRY_signal_get_path(GANTRY_subscription* subscription, const char** out)
{
    const auto* found = gantry::find(subscription);
    *out = found != nullptr && found->present != nullptr ? sd_bus_message_get_path(found->present)
                                                         : nullptr;
}

void GANTRY_unsubscribe(GANTRY_subscription** subscription)
{
    auto* found = subscription != nullptr ? gantry::find(*subscription) : nullptr;
    if (found != nullptr)
    {
        found->target.context->state->subscriptions.erase(found->serial);
    }
    if (subscription != nullptr)
    {
        *subscription = nullptr;
    }
}
