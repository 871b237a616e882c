#include "open_call.hpp"

#include <systemd/sd-bus.h>

namespace gantry
{

GANTRY_call* open_call(GANTRY_cpp_context& context, GANTRY_instance* instance,
                       sd_bus_message* message)
{
    if (context.open_calls >= context.max_open_calls)
    {
        return nullptr;
    }
    context.newest_call = new GANTRY_call{context, instance, message, context.newest_call};
    ++context.open_calls;
    sd_bus_message_ref(message);
    return context.newest_call;
}

GANTRY_call** find_open(GANTRY_cpp_context* context, const GANTRY_call* call) noexcept
{
    if (context == nullptr || call == nullptr)
    {
        return nullptr;
    }
    auto** place = &context->newest_call;
    while (*place != nullptr && *place != call)
    {
        place = &(*place)->older;
    }
    return *place != nullptr ? place : nullptr;
}

TakenCall::TakenCall(GANTRY_call** place) noexcept : call(*place)
{
    *place = call->older;
    --call->context.open_calls;
}

TakenCall::~TakenCall()
{
    if (!is_answered)
    {
        refuse(SD_BUS_ERROR_FAILED, "the answer can't be sent");
    }
    sd_bus_message_unref(call->message);
    delete call;
}

bool TakenCall::wants_reply() const noexcept
{
    return sd_bus_message_get_expect_reply(call->message) > 0;
}

int TakenCall::refuse(const char* name, const char* text) noexcept
{
    is_answered = true;
    // It sends nothing if the client wants no reply.
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(name, text);
    return sd_bus_reply_method_error(call->message, &error);
}

void close_calls(GANTRY_cpp_context& context, const GANTRY_instance* instance) noexcept
{
    auto** place = &context.newest_call;
    while (*place != nullptr)
    {
        if (instance == nullptr || (*place)->instance == instance)
        {
            TakenCall(place).refuse(SD_BUS_ERROR_NO_REPLY,
                                    "the object was removed before it answered");
        }
        else
        {
            place = &(*place)->older;
        }
    }
}

} // namespace gantry
