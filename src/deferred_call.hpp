/*
 * Calls that a host answers later. Each holds what its answer needs of its message. A context has
 * its open calls in the order of their serials, and the serial is what the host has as its
 * GANTRY_call* (serial.hpp), so the handle of a call that is closed finds none.
 *
 * A call is taken out of the context to be answered, so that a second answer does no harm. The
 * calls of a client that has left are closed without one (calling_client.hpp).
 */
#pragma once

#include "calling_client.hpp"

#include <gantry/call.h>

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

namespace gantry
{

struct ReplyForm;

/** Whose call it is. */
struct CalledObject
{
    const void* object;
    /** Null for an object that a C++ host made itself. */
    GANTRY_instance* instance;
    /** Null if the host answers in C. */
    const ReplyForm* form;
};

struct OpenCall
{
    using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

    GANTRY_cpp_context& context;
    std::uintptr_t serial;
    CalledObject called;
    Message message;
    HeldClient client;

    /** Called when the client has left; null for none. */
    void (*cancelled)(GANTRY_call* call, void* data) = nullptr;
    void* cancelled_data = nullptr;
};

/** Closes the calls of a client that has left, newest first, and tells the host of each. */
void close_calls_of(GANTRY_cpp_context& context, HeldClient client);

/** What a context has of them. */
struct DeferredCalls
{
    CallingClients clients{close_calls_of, {}};
    std::map<std::uintptr_t, OpenCall> open;
    std::size_t max_open = 1024;
    std::size_t max_of_client = 128;
};

/** Keeps a call of the object open. Returns null if the context or the client has as many as it
 *  may. Throws SdBusError if memory ends. */
GANTRY_call* open_call(GANTRY_cpp_context& context, const CalledObject& called,
                       sd_bus_message* message);

/** The context's open call of that handle; null if there is none. */
OpenCall* find_open(GANTRY_cpp_context* context, const GANTRY_call* handle) noexcept;

/** Has the host's function called when the client of an open call has left; null ends it. Returns a
 *  negative errno if the bus can't be asked, and then changes nothing. */
int on_cancel(OpenCall& call, void (*cancelled)(GANTRY_call* call, void* data), void* data);

/** A call that was taken out of its context, to be answered now. */
class AnsweringCall
{
  public:
    explicit AnsweringCall(OpenCall& open);
    /** The client gets an error if no answer was sent. */
    ~AnsweringCall();
    AnsweringCall(const AnsweringCall&) = delete;
    AnsweringCall(AnsweringCall&&) = delete;
    AnsweringCall& operator=(const AnsweringCall&) = delete;
    AnsweringCall& operator=(AnsweringCall&&) = delete;

    [[nodiscard]] sd_bus_message* message() const noexcept
    {
        return call.mapped().message.get();
    }
    [[nodiscard]] bool wants_reply() const noexcept;

    /** Answers with an error. Returns a negative errno if it can't be sent. */
    int refuse(const char* name, const char* text) noexcept;

    void mark_answered() noexcept
    {
        is_answered = true;
    }

  private:
    std::map<std::uintptr_t, OpenCall>::node_type call;
    bool is_answered = false;
};

/** Refuses the open calls of an object that is being destroyed; for null all of the context. */
void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept;

} // namespace gantry
