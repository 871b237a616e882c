/*
 * A context's connection: the one way to it is GANTRY_get_sd_bus, and here is what several parts of
 * the library do with it.
 */
#pragma once

#include <gantry/context.hpp>

#include <cerrno>

namespace gantry
{

/** Repeats a call that waits for the bus for as long as signals interrupt it. Returns its result.
 */
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

/** Has the context see each message of its connection before any other does: the loss of a name,
 * and calls that are refused (backpressure.hpp). */
void see_messages(GANTRY_cpp_context& context);

/** Whether the bus itself sent the message. sd-bus doesn't check this for a match on the bus's
 * name, and any client can send a signal like the bus's to the connection. */
bool is_from_bus(sd_bus_message* message) noexcept;

/**
 * Requests a well-known name: it replaces another owner, may be replaced, and doesn't queue.
 * Returns a negative errno when the bus refuses; -EALREADY if the connection had the name before.
 * The name is the context's until the bus tells of its loss.
 */
int request_name(GANTRY_cpp_context& context, const char* name);

/** The name requested last of those that the context still owns; null if it owns none. */
const char* owned_name(GANTRY_cpp_context& context) noexcept;

/** Writes what waits to be written. Throws SdBusError. */
void flush(sd_bus* bus);

/** Writes what waits to be written, for a second at most, and logs what is dropped after that. */
void write_what_is_left(GANTRY_cpp_context& context) noexcept;

/** Has `lost` called once when the connection is lost; null ends that. */
void set_on_disconnect(GANTRY_cpp_context& context,
                       void (*lost)(GANTRY_cpp_context* context, void* data), void* data);

/** For check_connection(), with what sd_bus_is_open() returned. */
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
 * Tells is_in_callback() of callbacks that sd-bus doesn't know of: a function that the library
 * calls with an object which it may free, and a getter that sd-bus runs to make a signal, since
 * within one that has another such signal made sd-bus takes the first for ended.
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
