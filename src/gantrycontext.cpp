/*
 * The per-thread context: made at a thread's first use, destroyed by GANTRY_context_free or at the
 * thread's exit. Also a context's health check, and the stop of its loops.
 */
#include "gantrycontext.hpp"

#include "announcement.hpp"
#include "connection.hpp"
#include "context_state.hpp"
#include "deferred_call.hpp"
#include "deferred_destruction.hpp"
#include "exception_boundary.hpp"
#include "instance.hpp"
#include "thread_context.hpp"

#include <gantry/loop.h>

#include <pthread.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <exception>
#include <new>
#include <sdbusplus/exception.hpp>
#include <string>
#include <utility>

namespace
{

constexpr char source_stem[] = "gantrycontext";

/**
 * Deletes a context, which is then no longer its thread's. If the thread is exiting inside a
 * callback, the functions of sd-bus never return and keep their references, so the connection is
 * closed here: otherwise its name would stay owned, and calls would wait for their timeout.
 */
void destroy(GANTRY_cpp_context* context) noexcept
{
    // A thread may exit with a cancellation pending.
    const gantry::NoCancellation no_cancellation;
    if (context == nullptr)
    {
        return;
    }
    if (gantry::own_context() == context)
    {
        gantry::set_own_context(nullptr);
    }
    sd_bus* abandoned =
        gantry::is_in_callback(*context) ? sd_bus_ref(GANTRY_get_sd_bus(context->bus)) : nullptr;
    delete context;
    sd_bus_close_unref(abandoned);
}

/** Whether the connection can be used. Logs for `place` if it can't. */
bool is_ready(sd_bus* bus, const gantry::Place& place)
{
    const int result = sd_bus_is_ready(bus);
    if (result < 0)
    {
        GANTRY_LOG_AT(place, gantry::log::failed, "is_ready reported an error, rv=%d", result);
    }
    else if (result == 0)
    {
        GANTRY_LOG_AT(place, gantry::log::failed, "is_ready reported not ready, rv=%d", result);
    }
    return result > 0;
}

void GANTRY_get_or_allocate_ctx(GANTRY_cpp_context** out)
try
{
    *out = nullptr;
    if (!gantry::has_thread_key())
    {
        GANTRY_LOG(gantry::log::fault, "key is not valid");
        return;
    }
    if (GANTRY_cpp_context* existing = gantry::own_context())
    {
        if (!existing->state->destroy_when_idle)
        {
            *out = existing;
            return;
        }
        if (!gantry::destroy_if_idle(*existing))
        {
            // A second context would share its connection, on which its objects have their paths.
            return;
        }
    }

    const gantry::NoCancellation no_cancellation; // what is made here may have to be destroyed
    auto context = std::make_unique<GANTRY_cpp_context>();
    context->state->destroy = destroy;
    sd_bus* bus = GANTRY_get_sd_bus(context->bus);
    gantry::flush(bus);
    if (!is_ready(bus, GANTRY_HERE))
    {
        return;
    }
    // If memory is too short for this, it throws, and the context is deleted: the thread couldn't
    // find it again to free it.
    gantry::set_own_context(context.get());
    *out = context.release();
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

/** Deletes the key when the library is unloaded. Contexts of live threads stay as they are. */
[[gnu::destructor]] void GANTRY_per_thread_library_destructor()
{
    GANTRY_LOG(gantry::log::trace, "enter tid=%lu", pthread_self());
    const int result = gantry::delete_thread_key();
    if (result < 0)
    {
        GANTRY_LOG(gantry::log::trace, "no key, no cleanup needed");
        return;
    }
    if (result > 0)
    {
        GANTRY_LOG(gantry::log::fault, "pthread_key_delete failed with irv=%d", result);
    }
    GANTRY_LOG(gantry::log::trace, "leave");
}

} // namespace

void GANTRY_cpp_context::sanity_check() noexcept
{
    using gantry::log::fault;
    using gantry::log::trace;

    const gantry::NoCancellation no_cancellation;
    // The kernel is asked once per thread, and again in a forked child, whose thread has another
    // id.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local pid_t caller = 0;
    if (caller == 0)
    {
        caller = gettid();
    }
    sd_bus* connection = GANTRY_get_sd_bus(bus);

    if (connection != nullptr)
    {
        pid_t owner = 0;
        const int result = sd_bus_get_tid(connection, &owner);
        if (result < 0)
        {
            // ENXIO: no event loop, so no thread, is bound to the connection yet.
            if (result != -ENXIO)
            {
                GANTRY_LOG(fault, "sd_bus_get_tid returned an error, irv=%d", result);
            }
        }
        else if (owner != caller && owner != (caller = gettid()))
        {
            GANTRY_LOG(fault, "thread ids are not equal");
        }
    }

    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) == 0)
    {
        if (last_serviced != 0)
        {
            const std::int64_t gap = now.tv_sec - last_serviced;
            if (gap > delta_log_seconds)
            {
                GANTRY_LOG(trace, "delta=%d seconds", static_cast<int>(gap));
            }
            if (gap > not_serviced_seconds)
            {
                GANTRY_LOG(fault, "dbus not serviced for over %d seconds", static_cast<int>(gap));
            }
        }
        last_serviced = now.tv_sec;
    }

    if (connection == nullptr)
    {
        return;
    }
    std::uint64_t queued = 0;
    if (const int result = sd_bus_get_n_queued_read(connection, &queued); result < 0)
    {
        GANTRY_LOG(fault, "sd_bus_get_n_queued_read returned an error, rc=%d", result);
    }
    else if (queued > max_read_queue)
    {
        GANTRY_LOG(fault, "dbus has over %lu messages in read queue", queued);
    }
    queued = 0;
    if (const int result = sd_bus_get_n_queued_write(connection, &queued); result < 0)
    {
        GANTRY_LOG(fault, "sd_bus_get_n_queued_write returned an error, rc=%d", result);
    }
    else if (queued > max_write_queue)
    {
        GANTRY_LOG(fault, "dbus has over %lu messages in write queue", queued);
    }
}

void GANTRY_set_use_default(bool use_default)
{
    GANTRY_use_default = use_default;
}

void GANTRY_context_management(GANTRY_cpp_context* context, GANTRY_cpp_context** out)
try
{
    *out = nullptr;
    if (context != nullptr)
    {
        *out = context;
        GANTRY_LOG(gantry::log::trace, "leave");
        return;
    }
    GANTRY_get_or_allocate_ctx(&context);
    if (context == nullptr)
    {
        GANTRY_LOG(gantry::log::failed, "unable to allocate context");
        return;
    }
    if (is_ready(GANTRY_get_sd_bus(context->bus), GANTRY_HERE))
    {
        *out = context;
    }
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_cpp_context_new(GANTRY_cpp_context** out)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    *out = nullptr;
    GANTRY_cpp_context* context = nullptr;
    GANTRY_get_or_allocate_ctx(&context);
    if (context == nullptr)
    {
        GANTRY_LOG(gantry::log::failed, "unable to allocate context");
        return;
    }
    *out = context;
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_cpp_context_free(GANTRY_cpp_context** context)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    GANTRY_cpp_context* freed = std::exchange(*context, nullptr);
    if (freed != nullptr && gantry::is_in_use(*freed))
    {
        gantry::destroy_later(*freed);
    }
    else
    {
        destroy(freed);
    }
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_cpp_context_set_service(GANTRY_cpp_context* context, char* name)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    GANTRY_LOG(gantry::log::trace, "setting the service_name");
    if (name == nullptr)
    {
        GANTRY_LOG(gantry::log::trace, "caller requests no service_name");
        context->service_name = "";
    }
    else
    {
        context->service_name = name;
        GANTRY_LOG(gantry::log::trace, "service_name=[%s]", name);
        if (*name != '\0')
        {
            gantry::throw_if_failed(gantry::request_name(*context, name), "sd_bus_request_name");
        }
    }
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_context_get_service(GANTRY_cpp_context* context, const char** owned)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    *owned = nullptr;
    context = gantry::resolve(GANTRY_HERE, context);
    if (context != nullptr)
    {
        *owned = gantry::owned_name(*context);
    }
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_cpp_context_get_user_private(GANTRY_cpp_context* context, void** out)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    *out = nullptr;
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    *out = context->user_private;
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_cpp_context_set_user_private(GANTRY_cpp_context* context, void* user_private)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    context->user_private = user_private;
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_context_on_disconnect(GANTRY_cpp_context* context,
                                  void (*lost)(GANTRY_cpp_context* context, void* data), void* data,
                                  int* error)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    const auto here = GANTRY_HERE;
    const auto set = [&]
    {
        context = gantry::resolve(here, context);
        if (context == nullptr)
        {
            return gantry::already_logged(ENOTCONN);
        }
        gantry::set_on_disconnect(*context, lost, data);
        return 0;
    };
    gantry::host_boundary(here, error, set);
}

// A signal handler calls it: no log, no lock, no allocation.
void GANTRY_context_stop(GANTRY_cpp_context* context)
{
    if (context == nullptr)
    {
        context = gantry::own_context();
    }
    if (context != nullptr)
    {
        context->state->stopping = true;
    }
}

GANTRY_cpp_context* gantry::resolve(const Place& place, GANTRY_cpp_context* context)
{
    GANTRY_context_management(context, &context);
    if (context == nullptr)
    {
        GANTRY_LOG_AT(place, log::fault, "vctx is NULL");
    }
    return context;
}

// The C names. Each calls the function of the same purpose with GANTRY_cpp_ in its name.

void GANTRY_context_new(GANTRY_cpp_context** out)
{
    GANTRY_cpp_context_new(out);
}

void GANTRY_context_free(GANTRY_cpp_context** context)
{
    GANTRY_cpp_context_free(context);
}

void GANTRY_context_set_service(GANTRY_cpp_context* context, const char* name)
{
    // The text is only read. The parameter of the C++ name isn't const, since hosts link to it.
    GANTRY_cpp_context_set_service(context, const_cast<char*>(name));
}

void GANTRY_context_get_user_private(GANTRY_cpp_context* context, void** out)
{
    GANTRY_cpp_context_get_user_private(context, out);
}

void GANTRY_context_set_user_private(GANTRY_cpp_context* context, void* user_private)
{
    GANTRY_cpp_context_set_user_private(context, user_private);
}
