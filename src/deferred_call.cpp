#include "deferred_call.hpp"

#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "serial.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <limits>
#include <utility>

namespace gantry
{
namespace
{

/**
 * A message that stands for a call when it is answered: with its sender, cookie, path and member,
 * but without its arguments and file descriptors, of which a client may send many.
 */
OpenCall::Message make_stub(sd_bus_message* call)
{
    sd_bus_message* made = nullptr;
    std::uint64_t cookie = 0;
    int result = sd_bus_message_new_method_call(
        sd_bus_message_get_bus(call), &made, nullptr, sd_bus_message_get_path(call),
        sd_bus_message_get_interface(call), sd_bus_message_get_member(call));
    OpenCall::Message stub(made, sd_bus_message_unref);
    const char* const sender = sd_bus_message_get_sender(call);
    result = result < 0 || sender == nullptr ? result : sd_bus_message_set_sender(made, sender);
    throw_if_failed(result, "sd_bus_message_new_method_call");
    sd_bus_message_set_expect_reply(made, sd_bus_message_get_expect_reply(call));
    sd_bus_message_get_cookie(call, &cookie);
    throw_if_failed(sd_bus_message_seal(made, cookie, 0), "sd_bus_message_seal");
    return stub;
}

} // namespace

GANTRY_call* open_call(GANTRY_cpp_context& context, const CalledObject& called,
                       sd_bus_message* message)
{
    auto& calls = context.state->calls;
    HeldClient client(context, sd_bus_message_get_sender(message));
    if (calls.open.size() >= calls.max_open || client.holds() > calls.max_of_client)
    {
        return nullptr;
    }
    const auto serial = next_serial(calls.open);
    calls.open.emplace_hint(
        calls.open.end(), serial,
        OpenCall{context, serial, called, make_stub(message), std::move(client)});
    return handle_of<GANTRY_call>(serial);
}

OpenCall* find_open(GANTRY_cpp_context* context, const GANTRY_call* handle) noexcept
{
    if (context == nullptr)
    {
        return nullptr;
    }
    auto& open = context->state->calls.open;
    const auto found = open.find(reinterpret_cast<std::uintptr_t>(handle));
    return found != open.end() ? &found->second : nullptr;
}

int on_cancel(OpenCall& call, void (*cancelled)(GANTRY_call* call, void* data), void* data)
{
    const int result = cancelled != nullptr ? call.client.watch() : 0;
    if (result >= 0)
    {
        call.cancelled = cancelled;
        call.cancelled_data = data;
    }
    return result;
}

AnsweringCall::AnsweringCall(OpenCall& open) :
    call(open.context.state->calls.open.extract(open.serial))
{
}

AnsweringCall::~AnsweringCall()
{
    if (!is_answered)
    {
        refuse(SD_BUS_ERROR_FAILED, "the answer can't be sent");
    }
}

bool AnsweringCall::wants_reply() const noexcept
{
    return sd_bus_message_get_expect_reply(message()) > 0;
}

int AnsweringCall::refuse(const char* name, const char* text) noexcept
{
    is_answered = true;
    // sd-bus sends nothing if the client wants no reply.
    const sd_bus_error error{.name = name, .message = text, ._need_free = 0};
    return sd_bus_reply_method_error(message(), &error);
}

void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept
{
    auto& open = context.state->calls.open;
    for (auto next = open.end(); next != open.begin();)
    {
        if (const auto newest = std::prev(next);
            instance == nullptr || newest->second.called.instance == instance)
        {
            AnsweringCall(newest->second)
                .refuse(SD_BUS_ERROR_NO_REPLY, "the object was removed before it answered");
        }
        else
        {
            next = newest;
        }
    }
}

void close_calls_of(GANTRY_cpp_context& context, HeldClient client)
{
    // Inside a callback of the connection the context isn't destroyed, whatever the host frees. But
    // the host may answer other calls, so the next one is looked up by the serial of the last.
    auto& open = context.state->calls.open;
    auto newer = std::numeric_limits<std::uintptr_t>::max();
    while (true)
    {
        auto next = open.lower_bound(newer);
        do
        {
            if (next == open.begin())
            {
                return;
            }
            --next;
        } while (!(next->second.client == client));
        newer = next->first;
        const auto closed = open.extract(next);
        const auto& call = closed.mapped();
        if (call.cancelled != nullptr)
        {
            bus_boundary(
                [&] {
                    return call.cancelled(handle_of<GANTRY_call>(call.serial), call.cancelled_data),
                           0;
                },
                as_handled);
        }
    }
}

} // namespace gantry
