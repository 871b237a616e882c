/*
 * The call that a virtual method, a setter or a host's function serves, as long as it runs: a call
 * of a method, or a client's write of a property. serve() keeps it on the stack, and the functions
 * of <gantry/call.h> find it there by its object. What they did to it decides the answer:
 *
 *     failed      the host's error is sent
 *     deferred    nothing is sent now: the call stays open (deferred_call.hpp)
 *     neither     the function's outputs are sent
 */
#pragma once

#include "block.hpp"
#include "c_form.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "instance.hpp"

#include <gantry/call.h>

#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <systemd/sd-bus.h>

#include <tuple>
#include <typeinfo>

namespace gantry
{

/** The property that a client writes. */
struct WrittenProperty
{
    const Property<Object>& row;
    /** Of the object's class. */
    const Properties& properties;
};

/** The type of the result of a method in reply shape, and what appends it to the reply. */
struct ReplyForm
{
    const std::type_info& type;
    void (*append)(sdbusplus::message_t& reply, void* result);
};

class ServedCall
{
  public:
    /** `written_property` is null for a call of a method. Only such a call can be deferred. */
    ServedCall(const void* served_object, sd_bus_message* served_message,
               const WrittenProperty* written_property) noexcept :
        object(served_object), message(served_message), written(written_property), outer(innermost)
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

    /** Whether the call was failed or deferred, so that the outputs aren't its answer. */
    [[nodiscard]] bool is_taken() const noexcept
    {
        return is_deferred || failure.name != nullptr;
    }
    /** The call that the thread is serving, the innermost of several; null for none. */
    static ServedCall* current() noexcept
    {
        return innermost;
    }
    /** Moves the failure, if there is one, into what sd-bus sends. Returns the callback's result.
     */
    int take(sd_bus_error* error) noexcept;

    /** Makes the call fail. Returns 0 or an errno. */
    int fail(const char* name, const char* text);

    const void* const object;
    sd_bus_message* const message;
    const WrittenProperty* const written;
    /** Null for a method in message shape. */
    const ReplyForm* reply_form = nullptr;
    bool is_deferred = false;
    /** Whether a change of the written property waits until the host has accepted it, and whether
     *  there was one. */
    bool holds_change = false;
    bool has_change = false;
    ServedCall* const outer;

  private:
    // A bare pointer, so that a thread that exits doesn't destroy it before its context. The model
    // puts it at a fixed offset from the thread pointer, so that no call is needed to find it.
    [[gnu::tls_model(
        "initial-exec")]] GANTRY_API static constinit thread_local ServedCall* innermost;

    sd_bus_error failure{};
};

/** Stands for a pointer to any virtual function of an object; the body that gets it knows its type.
 */
using AnyFunction = void (Object::*)();

/** Runs the virtual function for a call, and sends a method's reply unless the call was failed or
 *  deferred. */
using Body = void (*)(sdbusplus::message_t& message, ServedCall& served, Object& object,
                      AnyFunction function);

/**
 * The core of the bus callbacks of methods and of setters: runs the body inside bus_boundary(),
 * with the message as the thread's transaction, and returns the callback's result. An
 * internal_exception of sdbusplus becomes the client's error; any other exception is relayed
 * (exception_boundary.hpp).
 */
GANTRY_API int serve(sd_bus_message* message, Object& object, sdbusplus::SdBusInterface* bus,
                     sd_bus_error* error, AnyFunction function, Body body,
                     const WrittenProperty* written = nullptr);

/** The body of a method in message shape, which answers by itself. Of its exceptions only an
 *  SdBusError becomes the client's error. */
GANTRY_API void pass_message(sdbusplus::message_t& message, ServedCall& served, Object& object,
                             AnyFunction function);

/** Makes an exception the client's error. Returns the callback's result. */
GANTRY_API int set_error(sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                         const sdbusplus::exception::internal_exception& failure);

/** Whether the call in this message is being served and was failed or deferred. */
inline bool is_taken(sd_bus_message* message) noexcept
{
    const auto* served = ServedCall::current();
    return served != nullptr && served->message == message && served->is_taken();
}

/** Answers an open call of the method with what `append` adds to the reply. */
GANTRY_API void answer_with(const Place& place, const Descriptor& descriptor, const char* member,
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
