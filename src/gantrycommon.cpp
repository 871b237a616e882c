/*
 * The three dispatch loops. All traffic is processed by the sd-event loop that the context attached
 * its connection to; each run of it is an entry into libsystemd, so what a bus callback throws
 * comes out of that run.
 */
#include "carrier.hpp"
#include "gantrycontext.hpp"
#include "log.hpp"

#include <gantry/loop.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <sdbusplus/exception.hpp>

namespace
{

constexpr char source_stem[] = "gantrycommon";

using Timeout = std::optional<std::chrono::duration<unsigned long, std::ratio<1, 1000000>>>;

/** One run of the event loop; above 0 when it dispatched something. */
int run(sdeventplus::Event& event, Timeout timeout)
{
    return gantry::Carrier::enter([&event, timeout] { return event.run(timeout); });
}

/** Serves all that is ready, and doesn't block. */
void drain(sdeventplus::Event& event)
{
    constexpr Timeout at_once{std::chrono::microseconds{1}};
    while (run(event, at_once) > 0)
    {
    }
}

/**
 * What Event::loop does, a run at a time, so that a carried exception leaves the event loop
 * unfinished and ready to be entered again. Gives the exit code.
 */
int loop(sdeventplus::Event& event)
{
    do
    {
        run(event, std::nullopt);
    } while (sd_event_get_state(event.get()) != SD_EVENT_FINISHED);
    int code = 0;
    sd_event_get_exit_code(event.get(), &code);
    return code;
}

void wait(sd_bus* bus)
{
    if (const int result = sd_bus_wait(bus, UINT64_MAX); result < 0)
    {
        throw sdbusplus::exception::SdBusError(-result, "sd_bus_wait");
    }
}

} // namespace

void GANTRY_dbus_loop(GANTRY_cpp_context* context)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    GANTRY_context_management(context, &context);
    if (context == nullptr)
    {
        GANTRY_LOG(gantry::log::fault, "vctx is NULL");
        return;
    }
    GANTRY_LOG(gantry::log::trace, "sd_notify ready");
    sd_notify(0, "READY=1");
    while (context->running)
    {
        context->sanity_check();
        drain(context->event);
        if (!context->running)
        {
            break;
        }
        wait(GANTRY_get_sd_bus(context->bus));
    }
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_dbus_loop_one_pass(GANTRY_cpp_context* context)
try
{
    GANTRY_context_management(context, &context);
    if (context == nullptr)
    {
        GANTRY_LOG(gantry::log::fault, "vctx is NULL");
        return;
    }
    context->sanity_check();
    drain(context->event);
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_dbus_sdloop(GANTRY_cpp_context* context)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    GANTRY_context_management(context, &context);
    if (context == nullptr)
    {
        GANTRY_LOG(gantry::log::fault, "vctx is NULL");
        return;
    }
    context->sanity_check();
    const int code = loop(context->event);
    GANTRY_LOG(gantry::log::fault, "sdloop exiting, rc=%d\n", code);
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}
