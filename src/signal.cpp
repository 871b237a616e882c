#include "signal.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"

#include <systemd/sd-bus.h>

#include <string>
#include <utility>

namespace gantry
{

const GANTRY_instance* find_sender(const Place& place, const Descriptor& descriptor,
                                   const GANTRY_instance* instance,
                                   const GANTRY_instance* (*instance_of)(const void* object))
{
    if (instance == nullptr)
    {
        GANTRY_LOG_AT(place, log::trace, "cpp_inst is nullptr, getting default");
        const auto* context = resolve(place, nullptr);
        if (context == nullptr)
        {
            return nullptr;
        }
        for (const auto& tracked : context->tracker)
        {
            if (tracked.object == nullptr)
            {
                continue; // it was freed
            }
            GANTRY_LOG_AT(place, log::trace, "checking tracker");
            if (tracked.deleter == descriptor.deleter)
            {
                GANTRY_LOG_AT(place, log::trace, "found instance");
                instance = instance_of(tracked.object);
                break;
            }
        }
        if (instance == nullptr)
        {
            GANTRY_LOG_AT(place, log::failed, "cpp_inst is still nullptr");
            return nullptr;
        }
    }
    if (instance->the_service == nullptr)
    {
        GANTRY_LOG_AT(place, log::failed, "the_service is nullptr");
        return nullptr;
    }
    if (instance->descriptor != &descriptor)
    {
        GANTRY_LOG_AT(place, log::failed, "the instance is of [%s]",
                      instance->descriptor->interface);
        return nullptr;
    }
    return instance;
}

namespace
{

constexpr char source_stem[] = "signal";

int on_signal(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    const auto pass = [&]
    {
        sdbusplus::message_t arrived(message);
        (*static_cast<Subscription*>(data)->arrival)(arrived);
        return 0;
    };
    return bus_boundary(pass, as_handled);
}

} // namespace

void log_unreadable(const Place& place, GANTRY_cpp_context& context, const char* what)
{
    if (context.state->unreadable_signals.admit(context.event.get()))
    {
        GANTRY_LOG_EXCEPTION_AT(place, what);
    }
}

int add_match(GANTRY_cpp_context& context, const std::string& rule,
              sd_bus_message_handler_t on_arrival, void* data, sd_bus_slot** slot)
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    return uninterrupted([&]
                         { return sd_bus_add_match(bus, slot, rule.c_str(), on_arrival, data); });
}

void subscribe(const Place& place, GANTRY_cpp_context* context, const char* member, Receive receive)
try
{
    GANTRY_LOG_AT(place, log::trace, "enter");
    context = resolve(place, context);
    if (context == nullptr)
    {
        return;
    }
    auto arrival = [context, receive = std::move(receive), stem = place.stem,
                    line = place.line](sdbusplus::message_t& message)
    {
        if (context->state->destroy_when_idle)
        {
            return; // another subscription's callback for this signal freed it
        }
        // NOLINTNEXTLINE(bugprone-lambda-function-name): the name for the log
        receive({stem, line, static_cast<const char*>(__func__)}, *context, message);
    };
    const auto rule = std::string("type='signal',member='") + member + "',";
    auto subscription = std::make_unique<Subscription>(std::move(arrival));
    const int result =
        add_match(*context, rule, on_signal, subscription.get(), &subscription->slot);
    if (result < 0)
    {
        GANTRY_LOG(log::failed, "sd_bus_add_match failed for [%s], rv=%d", rule.c_str(), result);
    }
    context->signal_matches.push_back(std::move(subscription));
}
catch (const std::exception& failure)
{
    GANTRY_LOG_EXCEPTION_AT(place, failure.what());
}

} // namespace gantry
