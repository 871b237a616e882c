/*
 * What several parts of the library do with a context's connection, which only GANTRY_get_sd_bus
 * gives access to.
 */
#pragma once

#include <gantry/context.hpp>

#include <cerrno>

namespace gantry
{

/** Makes a call that waits for the bus, and repeats it while signals to the process interrupt it.
 * Returns its result. */
template <class Call>
int uninterrupted(const Call& call)
{
    int result = 0;
    do
    {
        result = call();
    } while (result == -EINTR);
    return result;
}

/** Opens the thread's shared default connection, or a private one. */
sdbusplus::bus_t open_bus(bool is_shared);

/** Adds the filter that sees each message of the connection before sd-bus dispatches it. It handles
 * the loss of a name, and refuses calls (backpressure.hpp). */
void see_messages(GANTRY_cpp_context& context);

/** Whether the bus itself sent the message. sd-bus doesn't check this for a match on the bus's
 * name, and any client can send the connection a signal that looks like the bus's. */
bool is_from_bus(sd_bus_message* message) noexcept;

/**
 * Requests a well-known name. The context replaces another owner, may be replaced itself, and
 * doesn't queue for the name. Returns a negative errno if the bus refuses, or -EALREADY if the
 * connection already has the name. The context owns the name until the bus reports its loss.
 */
int request_name(GANTRY_cpp_context& context, const char* name);

/** Of the names that the context still owns, the one requested last; null if it owns none. */
const char* owned_name(GANTRY_cpp_context& context) noexcept;

/** Writes all queued messages. Throws SdBusError. */
void flush(sd_bus* bus);

/** Writes queued messages for at most a second, and logs how many are dropped after that. */
void write_what_is_left(GANTRY_cpp_context& context) noexcept;

/** Has `lost` called once when the connection is lost; null ends that. */
void set_on_disconnect(GANTRY_cpp_context& context,
                       void (*lost)(GANTRY_cpp_context* context, void* data), void* data);

/** Called by check_connection() with what sd_bus_is_open() returned: throws as described there. */
void end_connection(GANTRY_cpp_context& context, int open);

/** Throws SdBusError if the connection can't be served, because it was closed or because it isn't
 *  attached to the context's event loop. An event loop that exits closes its connections, so then
 *  this throws nothing. */
inline void check_connection(GANTRY_cpp_context& context)
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    const int open = sd_bus_is_open(bus);
    if (open <= 0 || sd_bus_get_event(bus) == nullptr)
    {
        end_connection(context, open);
    }
}

/** Whether a callback of the connection is running. */
bool is_in_callback(GANTRY_cpp_context& context) noexcept;

/**
 * Marks a callback that sd-bus doesn't report, so that is_in_callback() is true in it:
 *
 *   - a function that the library itself calls with an object, which the function may free;
 *   - a getter that sd-bus runs to make a signal. If the getter has another such signal made,
 *     sd-bus reports no callback once that one is made, although the first getter still runs.
 */
class InCallback
{
  public:
    InCallback() noexcept;
    ~InCallback();
    InCallback(const InCallback&) = delete;
    InCallback(InCallback&&) = delete;
    InCallback& operator=(const InCallback&) = delete;
    InCallback& operator=(InCallback&&) = delete;
};

} // namespace gantry
