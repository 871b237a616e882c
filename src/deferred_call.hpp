/*
 * Calls that a host answers later. Each holds what its answer needs of its message; a context has a
 * list of its open ones, newest first. A call is taken out of the list to be answered, and a
 * pointer that isn't in the list isn't followed, so that a second answer does no harm.
 */
#pragma once

#include <gantry/call.h>

#include <gantry/context.hpp>

struct GANTRY_call
{
    GANTRY_cpp_context& context;
    GANTRY_instance* instance;
    sd_bus_message* message;
    GANTRY_call* older;
};

namespace gantry
{

/** Keeps a call of the object open. Returns null if the context has as many as it may. Throws
 *  SdBusError if memory ends. */
GANTRY_call* open_call(GANTRY_cpp_context& context, GANTRY_instance* instance,
                       sd_bus_message* message);

/** The place of an open call in the context's list; null if it isn't there. */
GANTRY_call** find_open(GANTRY_cpp_context* context, const GANTRY_call* call) noexcept;

/** A call that was taken out of the list, to be answered now. */
class AnsweringCall
{
  public:
    /** `place` is a result of find_open(). */
    explicit AnsweringCall(GANTRY_call** place) noexcept;
    /** The client gets an error if no answer was sent. */
    ~AnsweringCall();
    AnsweringCall(const AnsweringCall&) = delete;
    AnsweringCall(AnsweringCall&&) = delete;
    AnsweringCall& operator=(const AnsweringCall&) = delete;
    AnsweringCall& operator=(AnsweringCall&&) = delete;

    [[nodiscard]] sd_bus_message* message() const noexcept
    {
        return call->message;
    }
    [[nodiscard]] bool wants_reply() const noexcept;

    /** Answers with an error. Returns a negative errno if it can't be sent. */
    int refuse(const char* name, const char* text) noexcept;

    void mark_answered() noexcept
    {
        is_answered = true;
    }

  private:
    GANTRY_call* call;
    bool is_answered = false;
};

/** Refuses the open calls of an object that is being destroyed; for null all of the context. */
void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept;

} // namespace gantry
