/*
 * The call that a host's function serves, as long as the function runs. The edge of the bus
 * callback keeps it on the stack, the functions of <gantry/call.h> find it there by its object, and
 * the edge answers as they asked:
 *
 *     not at all    with the function's outputs
 *     failed        with the host's error
 *     deferred      not now: the call stays open (deferred_call.hpp)
 */
#pragma once

#include "block.hpp"
#include "c_form.hpp"
#include "deferred_call.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "object.hpp"

#include <sdbusplus/message.hpp>

#include <systemd/sd-bus.h>

#include <tuple>

namespace gantry
{

class ServedCall
{
  public:
    /** A call of a method, or a client's write of a property, which can't be deferred. */
    enum class Kind
    {
        method,
        write,
    };

    ServedCall(const void* served_object, sd_bus_message* served_message, Kind its_kind) noexcept :
        object(served_object), message(served_message), kind(its_kind), outer(innermost)
    {
        innermost = this;
    }
    ~ServedCall()
    {
        innermost = outer;
        if (failure.name != nullptr)
        {
            sd_bus_error_free(&failure);
        }
    }
    ServedCall(const ServedCall&) = delete;
    ServedCall(ServedCall&&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;
    ServedCall& operator=(ServedCall&&) = delete;

    /** Whether the outputs aren't the answer. */
    [[nodiscard]] bool is_taken() const noexcept
    {
        return is_deferred || failure.name != nullptr;
    }
    /** The call that the thread is serving; null for none. */
    static ServedCall* current() noexcept
    {
        return innermost;
    }
    /** Moves the failure, if there is one, to what sd-bus sends. Returns what sd-bus is to get. */
    int take(sd_bus_error* error) noexcept;

    /** Makes the call fail. Returns 0 or an errno. */
    int fail(const char* name, const char* text);

    const void* const object;
    sd_bus_message* const message;
    const Kind kind;
    bool is_deferred = false;
    ServedCall* const outer;

  private:
    // A bare pointer, so that a thread that exits doesn't destroy it before its context. At a fixed
    // offset from the thread pointer, so that no call is needed to find it.
    [[gnu::tls_model("initial-exec")]] inline static constinit thread_local ServedCall* innermost =
        nullptr;

    sd_bus_error failure{};
};

/** Thrown to pass sdbusplus when a write is refused and the client's error is set; `result` is what
 *  sd-bus is to get. */
struct Taken
{
    int result;
};

/** bus_boundary() for a client's write, with a handler for Taken inside it. */
int at_write_edge(CallReference call);

/** A client's write of which the host is told: `set` stores the new value, and, called again, puts
 *  the former one back, for a host that refuses; then the error is set and Taken is thrown. */
void set_unless_refused(GANTRY_instance& listener, const char* member, sd_bus_message* message,
                        sd_bus_error* error, CallReference set);

/** Whether the call in this message is being served and its outputs aren't the answer. */
inline bool is_taken(sd_bus_message* message) noexcept
{
    const auto* served = ServedCall::current();
    return served != nullptr && served->message == message && served->is_taken();
}

/** Answers an open call of the method with what `append` adds to the reply. */
void answer_with(const Place& place, const Descriptor& descriptor, const char* member,
                 GANTRY_call** call, int* error, const void* values,
                 void (*append)(const void* values, sdbusplus::message_t& reply));

/** The body of an exported answering function. Cold, so that it is compiled for size. */
template <class... Values, class... Forms>
[[gnu::cold]] void answer(const Place& place, const Descriptor& descriptor, const char* member,
                          GANTRY_call** call, int* error, Forms... forms)
{
    const std::tuple<Forms...> values(forms...);
    answer_with(place, descriptor, member, call, error, &values,
                [](const void* lent, sdbusplus::message_t& reply)
                {
                    std::apply([&](auto... form)
                               { (append_value(reply, for_bus(from_c<Values>(form))), ...); },
                               *static_cast<const std::tuple<Forms...>*>(lent));
                });
}

} // namespace gantry
