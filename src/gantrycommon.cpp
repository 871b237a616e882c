/*
 * What hosts of all interfaces call beside the context: the three dispatch loops, the accessors of
 * an instance, and the functions of the ten basic types.
 *
 * All traffic is processed by the sd-event loop that the context attached its connection to. Each
 * run of it enters libsystemd, so run() throws the exception that a bus callback threw.
 */
#include "announcement.hpp"
#include "connection.hpp"
#include "context_state.hpp"
#include "deferred_destruction.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "gantrycontext.hpp"
#include "instance.hpp"

#include <gantry/instance.h>
#include <gantry/loop.h>
#include <gantry/types.hpp>
#include <gantry/version.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <system_error>

namespace
{

constexpr char source_stem[] = "gantrycommon";

using Timeout = std::optional<std::chrono::duration<unsigned long, std::ratio<1, 1000000>>>;

/** One run of the event loop. Returns more than 0 if it dispatched something. */
int run(GANTRY_cpp_context& context, Timeout timeout)
{
    return gantry::ExceptionRelay::enter([&context, timeout]
                                         { return context.event.run(timeout); });
}

/** Serves all that is ready, or until a stop, without blocking. Throws if the connection can't be
 *  served any more. */
void drain(GANTRY_cpp_context& context)
{
    constexpr Timeout at_once{std::chrono::microseconds{1}};
    gantry::send_due_changes(context);
    while (!context.state->stopping && run(context, at_once) > 0)
    {
    }
    gantry::send_due_changes(context);
    gantry::check_connection(context);
}

/**
 * Does what Event::loop does, one run at a time, so that after a stop or a relayed exception the
 * event loop is not finished and can be entered again. Returns the exit code, 0 if there is none,
 * and throws a negative one, as Event::loop does.
 */
int loop(GANTRY_cpp_context& context)
{
    sd_event* event = context.event.get();
    gantry::send_due_changes(context);
    while (!context.state->stopping)
    {
        // Checked before each run: if the host's own event loop has dispatched the connection's
        // loss, no event would end the run.
        gantry::check_connection(context);
        run(context, std::nullopt);
        gantry::send_due_changes(context);
        if (sd_event_get_state(event) == SD_EVENT_FINISHED)
        {
            break;
        }
    }
    int code = 0;
    sd_event_get_exit_code(event, &code);
    if (code < 0)
    {
        throw std::system_error(-code, std::generic_category(), "sd_event_loop");
    }
    return code;
}

bool goes_on(const GANTRY_cpp_context& context) noexcept
{
    return context.running && !context.state->stopping;
}

/** Sleeps until the bus has something to do, or the handler of a signal requested a stop. */
void wait(GANTRY_cpp_context& context)
{
    const int result = sd_bus_wait(GANTRY_get_sd_bus(context.bus), UINT64_MAX);
    if (result != -EINTR || !context.state->stopping)
    {
        gantry::throw_if_failed(result, "sd_bus_wait");
    }
}

/** Folds a seed and a name into a number of Type's width: each byte doubles the value before it. */
template <class Type>
Type fold(const char* name, int seed)
{
    using Unsigned = std::make_unsigned_t<Type>;
    auto value = static_cast<Unsigned>(seed);
    for (; name != nullptr && *name != '\0'; ++name)
    {
        value = static_cast<Unsigned>(2U * value + static_cast<unsigned char>(*name));
    }
    return static_cast<Type>(value);
}

/** The top bit of the byte's fold, so that true and false are equally likely. */
template <>
bool fold<bool>(const char* name, int seed)
{
    return fold<unsigned char>(name, seed) >= 0x80;
}

/** A double halves instead of doubling, and so stays in range. */
template <>
double fold<double>(const char* name, int seed)
{
    double value = seed;
    for (; name != nullptr && *name != '\0'; ++name)
    {
        value = 0.5 * value + static_cast<unsigned char>(*name);
    }
    return value;
}

// One overload for each way to log a value.

#define GANTRY_DEBUG(type, letter)                                                                 \
    void debug(const gantry::Place& place, const char* name, type value)                           \
    {                                                                                              \
        GANTRY_LOG_AT(place, gantry::log::trace, "%s=%" letter, name, value);                      \
    }
GANTRY_DEBUG(short, "d")
GANTRY_DEBUG(unsigned short, "u")
GANTRY_DEBUG(int, "d")
GANTRY_DEBUG(unsigned int, "u")
GANTRY_DEBUG(long, "ld")
GANTRY_DEBUG(unsigned long, "lu")
GANTRY_DEBUG(double, "g")
#undef GANTRY_DEBUG

void debug(const gantry::Place& place, const char* name, unsigned char value)
{
    const bool printable = value >= 0x20 && value <= 0x7E;
    GANTRY_LOG_AT(place, gantry::log::trace, "%s=%u (%c)", name, value, printable ? value : '.');
}

void debug(const gantry::Place& place, const char* name, bool value)
{
    if (value)
    {
        GANTRY_LOG_AT(place, gantry::log::trace, "%s=true", name);
    }
    else
    {
        GANTRY_LOG_AT(place, gantry::log::trace, "%s=false", name);
    }
}

void debug(const gantry::Place& place, const char* name, const char* value)
{
    if (value != nullptr)
    {
        GANTRY_LOG_AT(place, gantry::log::trace, "%s=[%s]", name, value);
    }
    else
    {
        GANTRY_LOG_AT(place, gantry::log::trace, "%s=NULL", name);
    }
}

} // namespace

void GANTRY_dbus_loop(GANTRY_cpp_context* context)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    GANTRY_LOG(gantry::log::trace, "sd_notify ready");
    const gantry::InLoop in_loop(*context);
    sd_notify(0, "READY=1");
    while (goes_on(*context))
    {
        context->sanity_check();
        drain(*context);
        if (!goes_on(*context))
        {
            break;
        }
        wait(*context);
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
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    const gantry::InLoop in_loop(*context);
    context->sanity_check();
    drain(*context);
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_dbus_sdloop(GANTRY_cpp_context* context)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    const gantry::InLoop in_loop(*context);
    context->sanity_check();
    const int code = loop(*context);
    GANTRY_LOG(gantry::log::fault, "sdloop exiting, rc=%d\n", code);
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_context_get_fd(GANTRY_cpp_context* context, int* out)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    *out = -1;
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        return;
    }
    if (const int fd = sd_event_get_fd(context->event.get()); fd >= 0)
    {
        *out = fd;
    }
    GANTRY_LOG(gantry::log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_instance_get_context(GANTRY_instance* instance, void** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr && out != nullptr)
    {
        *out = instance->vctx;
    }
}

void GANTRY_instance_get_path(GANTRY_instance* instance, char** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr && out != nullptr)
    {
        *out = instance->path != nullptr ? strdup(instance->path) : nullptr;
    }
}

void GANTRY_instance_path_free(char** path)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (path != nullptr)
    {
        std::free(std::exchange(*path, nullptr));
    }
}

void GANTRY_instance_get_user_private(GANTRY_instance* instance, void** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr && out != nullptr)
    {
        *out = instance->user_private;
    }
}

// NOLINTBEGIN(readability-non-const-parameter): hosts link to these signatures
#define GANTRY_DEFINE_TYPE(type, c_type)                                                           \
    void GANTRY_##type##_parse_parameter(sdbusplus::message_t& message, c_type* out)               \
    {                                                                                              \
        message.read(*out);                                                                        \
    }                                                                                              \
                                                                                                   \
    void GANTRY_##type##_reply_append(sdbusplus::message_t& message, c_type* appended)             \
    {                                                                                              \
        message.append(*appended);                                                                 \
    }                                                                                              \
                                                                                                   \
    void GANTRY_##type##_c_debug(const char* name, c_type* logged)                                 \
    {                                                                                              \
        if (name != nullptr && logged != nullptr)                                                  \
        {                                                                                          \
            debug(GANTRY_HERE, name, *logged);                                                     \
        }                                                                                          \
    }                                                                                              \
                                                                                                   \
    c_type GANTRY_##type##_c_skeleton(const char* name, int seed)                                  \
    {                                                                                              \
        return fold<c_type>(name, seed);                                                           \
    }
GANTRY_FIXED_SIZE_TYPES(GANTRY_DEFINE_TYPE)
#undef GANTRY_DEFINE_TYPE
// NOLINTEND(readability-non-const-parameter)

void GANTRY_string_parse_parameter(sdbusplus::message_t& message, char** out)
{
    std::string text;
    message.read(text);
    *out = GANTRY_string_cpp_to_c(text);
}

void GANTRY_string_reply_append(sdbusplus::message_t& message, char** appended)
{
    auto text = GANTRY_string_c_to_cpp(appended);
    gantry::repair(text);
    if (gantry::wire_size(text) > gantry::max_value_size())
    {
        GANTRY_LOG(gantry::log::failed, "a text of %zu bytes doesn't fit into a message",
                   text.size());
        text.clear();
    }
    message.append(text);
}

void GANTRY_string_c_debug(const char* name, char** logged)
{
    if (name != nullptr && logged != nullptr)
    {
        debug(GANTRY_HERE, name, *logged);
    }
}

char* GANTRY_string_c_skeleton(const char* name, int seed)
{
    if (name == nullptr)
    {
        return strdup("skeleton string");
    }
    char* text = nullptr;
    return asprintf(&text, "skeleton string for %s %d", name, seed) < 0 ? nullptr : text;
}

char* GANTRY_string_cpp_to_c(std::string& text)
{
    char* copy = strdup(text.c_str());
    if (copy == nullptr)
    {
        throw std::bad_alloc();
    }
    return copy;
}

std::string GANTRY_string_c_to_cpp(char** text)
{
    return text != nullptr && *text != nullptr ? std::string{*text} : std::string{};
}

void GANTRY_string_free(char** text)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (text != nullptr)
    {
        std::free(std::exchange(*text, nullptr));
    }
}

const char* GANTRY_version(void)
{
    return GANTRY_VERSION;
}
