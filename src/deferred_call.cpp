#include "deferred_call.hpp"

#include "context_state.hpp"
#include "exception_boundary.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>

namespace gantry
{
namespace
{

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

/**
 * A message that stands for a call when it is answered: with its sender, cookie and member, but
 * without its arguments and descriptors, of which a client may send many.
 */
Message make_stub(sd_bus_message* call)
{
    sd_bus_message* made = nullptr;
    std::uint64_t cookie = 0;
    int result = sd_bus_message_new_method_call(
        sd_bus_message_get_bus(call), &made, nullptr, sd_bus_message_get_path(call),
        sd_bus_message_get_interface(call), sd_bus_message_get_member(call));
    Message stub(made, sd_bus_message_unref);
    const char* const sender = sd_bus_message_get_sender(call);
    result = result < 0 || sender == nullptr ? result : sd_bus_message_set_sender(made, sender);
    throw_if_failed(result, "sd_bus_message_new_method_call");
    sd_bus_message_set_expect_reply(made, sd_bus_message_get_expect_reply(call));
    sd_bus_message_get_cookie(call, &cookie);
    throw_if_failed(sd_bus_message_seal(made, cookie, 0), "sd_bus_message_seal");
    return stub;
}

} // namespace

GANTRY_call* open_call(GANTRY_cpp_context& context, GANTRY_instance* instance,
                       sd_bus_message* message)
{
    if (context.state->open_calls >= context.state->max_open_calls)
    {
        return nullptr;
    }
    auto stub = make_stub(message);
    context.state->newest_call =
        new GANTRY_call{context, instance, stub.get(), context.state->newest_call};
    static_cast<void>(stub.release()); // now the call's
    ++context.state->open_calls;
    return context.state->newest_call;
}

GANTRY_call** find_open(GANTRY_cpp_context* context, const GANTRY_call* call) noexcept
{
    if (context == nullptr || call == nullptr)
    {
        return nullptr;
    }
    auto** place = &context->state->newest_call;
    while (*place != nullptr && *place != call)
    {
        place = &(*place)->older;
    }
    return *place != nullptr ? place : nullptr;
}

AnsweringCall::AnsweringCall(GANTRY_call** place) noexcept : call(*place)
{
    *place = call->older;
    --call->context.state->open_calls;
}

AnsweringCall::~AnsweringCall()
{
    if (!is_answered)
    {
        refuse(SD_BUS_ERROR_FAILED, "the answer can't be sent");
    }
    sd_bus_message_unref(call->message);
    delete call;
}

bool AnsweringCall::wants_reply() const noexcept
{
    return sd_bus_message_get_expect_reply(call->message) > 0;
}

int AnsweringCall::refuse(const char* name, const char* text) noexcept
{
    is_answered = true;
    // It sends nothing if the client wants no reply.
    const sd_bus_error error{.name = name, .message = text, ._need_free = 0};
    return sd_bus_reply_method_error(call->message, &error);
}

void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept
{
    auto** place = &context.state->newest_call;
    while (*place != nullptr)
    {
        if (instance == nullptr || (*place)->instance == instance)
        {
            AnsweringCall(place).refuse(SD_BUS_ERROR_NO_REPLY,
                                        "the object was removed before it answered");
        }
        else
        {
            place = &(*place)->older;
        }
    }
}

} // namespace gantry
