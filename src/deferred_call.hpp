/*
 * Calls that a host answers later. An open call keeps that part of its message which the answer
 * needs. A context keeps its open calls by serial. The host has the serial as its GANTRY_call*
 * (serial.hpp), so the handle of a closed call finds nothing.
 *
 * A call is removed from the context before it is answered, so a second answer finds nothing
 * either. The calls of a client that has left are closed without an answer (calling_client.hpp).
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

/** The object that was called, and how it is answered. */
struct CalledObject
{
    const void* object;
    /** Null for an object that a C++ host made itself. */
    GANTRY_instance* instance;
    /** How the result is appended; null if the host answers in C. */
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

/** Closes the calls of a client that has left, newest first, and calls their `cancelled`. */
void close_calls_of(GANTRY_cpp_context& context, HeldClient client);

/** The deferred calls of a context. */
struct DeferredCalls
{
    CallingClients clients{close_calls_of, {}};
    std::map<std::uintptr_t, OpenCall> open;
    std::size_t max_open = 1024;
    std::size_t max_of_client = 128;
};

/** Keeps a call of the object open. Returns null if the context or the client already has as many
 *  open calls as it may. Throws SdBusError or std::bad_alloc if memory is too short. */
GANTRY_call* open_call(GANTRY_cpp_context& context, const CalledObject& called,
                       sd_bus_message* message);

/** The context's open call with that handle; null if there is none, or no context. */
OpenCall* find_open(GANTRY_cpp_context* context, const GANTRY_call* handle) noexcept;

/** Sets the host's function that is called when the client of an open call has left; null for none.
 *  Returns a negative errno, and changes nothing, if the client can't be watched. */
int on_cancel(OpenCall& call, void (*cancelled)(GANTRY_call* call, void* data), void* data);

/** A call that was removed from its context to be answered now. */
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

/** Refuses the open calls of an object that is being destroyed; for null, all of the context. */
void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept;

} // namespace gantry
