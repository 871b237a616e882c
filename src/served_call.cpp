#include "served_call.hpp"

#include "connection.hpp"
#include "credentials.hpp"
#include "deferred_call.hpp"
#include "gantrycontext.hpp"
#include "thread_context.hpp"
#include "waiting_changes.hpp"

#include <gantry/call.hpp>

#include <bit>
#include <cerrno>
#include <cstring>
#include <sdbusplus/server/transaction.hpp>
#include <string>

namespace
{

constexpr char source_stem[] = "served_call";
constexpr char too_many_calls[] = "too many calls are open";

} // namespace

namespace gantry
{

[[gnu::tls_model("initial-exec")]] constinit thread_local ServedCall* ServedCall::innermost =
    nullptr;
namespace
{

/** The innermost call of the object that is being served. Returns null, and logs for `place`, if
 *  there is none. */
ServedCall* find_served(const Place& place, const GANTRY_instance* instance)
{
    for (auto* served = instance != nullptr ? ServedCall::current() : nullptr; served != nullptr;
         served = served->outer)
    {
        if (served->object == instance->the_service)
        {
            return served;
        }
    }
    GANTRY_LOG_AT(place, log::failed, "no callback of the object is running");
    return nullptr;
}

std::string repaired(const char* text)
{
    return for_bus(std::string(text != nullptr ? text : ""));
}

/** The callback's result if a call ends with an exception. A method call counts as handled, without
 * a reply; for a write, sd-bus makes the errno the client's error. */
int report(int error)
{
    const auto& served = *ServedCall::current();
    const char* const path = sd_bus_message_get_path(served.message);
    if (served.written != nullptr)
    {
        GANTRY_LOG(log::failed, "a client's write of property [%s] at [%s] failed",
                   served.written->row.member, path);
        return error;
    }
    GANTRY_LOG(log::failed, "method [%s.%s] at [%s] failed",
               sd_bus_message_get_interface(served.message),
               sd_bus_message_get_member(served.message), path);
    return as_handled(error);
}

/** Answers an open call with what `append` adds to the reply. */
template <class Append>
void send_answer(OpenCall& open, const Append& append)
{
    // The object may be destroyed. Then only its address is used, for which no change waits.
    const auto& object = *static_cast<const Object*>(open.called.object);
    AnsweringCall taken(open);
    if (taken.wants_reply())
    {
        auto reply = sdbusplus::message_t(taken.message()).new_method_return();
        append(reply);
        send_changes_of(object);
        reply.method_return();
    }
    taken.mark_answered();
}

bool is_error_name(const char* name)
{
    // D-Bus has the same rules for the names of errors and of interfaces.
    return name != nullptr && sd_bus_interface_name_is_valid(name) > 0;
}

} // namespace

int ServedCall::take(sd_bus_error* error) noexcept
{
    // A failure that was set before the call was deferred doesn't count.
    return is_deferred ? 1 : sd_bus_error_move(error, &failure);
}

int ServedCall::fail(const char* name, const char* text)
{
    sd_bus_error_free(&failure);
    sd_bus_error_set(&failure, name, text);
    return sd_bus_error_has_name(&failure, name) > 0 ? 0 : ENOMEM;
}

int set_error(sdbusplus::SdBusInterface* bus, sd_bus_error* error,
              const sdbusplus::exception::internal_exception& failure)
{
    const char* const name = failure.name();
    return bus->sd_bus_error_set(error, is_error_name(name) ? name : SD_BUS_ERROR_FAILED,
                                 failure.description());
}

int serve(sd_bus_message* message, Object& object, sdbusplus::SdBusInterface* bus,
          sd_bus_error* error, AnyFunction function, Body body, const WrittenProperty* written)
{
    ServedCall served(&object, message, written);
    const auto run = [&]
    {
        try
        {
            sdbusplus::message_t call(message, bus);
            sdbusplus::server::transaction::set_id(call);
            body(call, served, object, function);
            if (written != nullptr)
            {
                send_changes_of(object); // before sd-bus replies
            }
            return served.is_taken() ? served.take(error) : 1;
        }
        catch (const sdbusplus::exception::internal_exception& failure)
        {
            if (body == pass_message &&
                dynamic_cast<const sdbusplus::exception::SdBusError*>(&failure) == nullptr)
            {
                throw;
            }
            return served.is_deferred ? 1 : set_error(bus, error, failure);
        }
    };
    return bus_boundary(run, report);
}

void pass_message(sdbusplus::message_t& message, ServedCall& /*served*/, Object& object,
                  AnyFunction function)
{
    (object.*std::bit_cast<void (Object::*)(sdbusplus::message_t&)>(function))(message);
}

void answer_with(const Place& place, const Descriptor& descriptor, const char* member,
                 GANTRY_call** call, int* error, const void* values,
                 void (*append)(const void* values, sdbusplus::message_t& reply))
{
    const auto answer = [&]
    {
        auto* open = call != nullptr ? find_open(own_context(), *call) : nullptr;
        if (open == nullptr || open->called.instance == nullptr ||
            open->called.instance->descriptor != &descriptor ||
            std::strcmp(sd_bus_message_get_member(open->message.get()), member) != 0)
        {
            return EINVAL;
        }
        *call = nullptr;
        send_answer(*open, [&](sdbusplus::message_t& reply) { append(values, reply); });
        return 0;
    };
    host_boundary(place, error, answer);
}

} // namespace gantry

void GANTRY_call_fail(GANTRY_instance* instance, const char* name, const char* text, int* error)
{
    const auto here = GANTRY_HERE;
    const auto fail = [=]
    {
        auto* served = gantry::find_served(here, instance);
        if (served == nullptr)
        {
            return gantry::already_logged(EINVAL);
        }
        if (served->is_deferred || !gantry::is_error_name(name))
        {
            return EINVAL;
        }
        return served->fail(name, gantry::repaired(text).c_str());
    };
    gantry::host_boundary(here, error, fail);
}

void GANTRY_call_get_sender(GANTRY_instance* instance, const char** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    auto* served = gantry::find_served(GANTRY_HERE, instance);
    *out = served != nullptr ? sd_bus_message_get_sender(served->message) : nullptr;
}

void GANTRY_call_get_credentials(GANTRY_instance* instance, uid_t* uid, pid_t* pid, int* error)
{
    const auto here = GANTRY_HERE;
    const auto ask = [=]
    {
        auto* served = gantry::find_served(here, instance);
        if (served == nullptr)
        {
            return gantry::already_logged(EINVAL);
        }
        gantry::Credentials found{};
        const int result = gantry::ask_credentials(
            *instance->vctx, sd_bus_message_get_sender(served->message), found);
        if (result < 0)
        {
            return -result;
        }
        if (uid != nullptr)
        {
            *uid = found.uid;
        }
        if (pid != nullptr)
        {
            *pid = found.pid;
        }
        return 0;
    };
    gantry::host_boundary(here, error, ask);
}

void GANTRY_call_defer(GANTRY_instance* instance, GANTRY_call** call, int* error)
{
    *call = nullptr;
    const auto here = GANTRY_HERE;
    const auto defer = [=]
    {
        auto* served = gantry::find_served(here, instance);
        if (served == nullptr)
        {
            return gantry::already_logged(EINVAL);
        }
        if (served->is_deferred || served->written != nullptr)
        {
            return EINVAL;
        }
        *call = gantry::open_call(*instance->vctx, {instance->the_service, instance, nullptr},
                                  served->message);
        if (*call == nullptr)
        {
            served->fail(SD_BUS_ERROR_LIMITS_EXCEEDED, too_many_calls);
            return ENOBUFS;
        }
        served->is_deferred = true;
        return 0;
    };
    gantry::host_boundary(here, error, defer);
}

void GANTRY_call_refuse(GANTRY_call** call, const char* name, const char* text, int* error)
{
    const auto here = GANTRY_HERE;
    const auto refuse = [=]
    {
        auto* open = call != nullptr ? gantry::find_open(gantry::own_context(), *call) : nullptr;
        if (open == nullptr || !gantry::is_error_name(name))
        {
            return EINVAL;
        }
        const auto repaired = gantry::repaired(text);
        *call = nullptr;
        const int result = gantry::AnsweringCall(*open).refuse(name, repaired.c_str());
        return result < 0 ? -result : 0;
    };
    gantry::host_boundary(here, error, refuse);
}

void GANTRY_call_on_cancel(GANTRY_call* call, void (*cancelled)(GANTRY_call* call, void* data),
                           void* data, int* error)
{
    const auto listen = [=]
    {
        auto* open = gantry::find_open(gantry::own_context(), call);
        return open != nullptr ? -gantry::on_cancel(*open, cancelled, data) : EINVAL;
    };
    gantry::host_boundary(GANTRY_HERE, error, listen);
}

GANTRY_call* GANTRY_cpp_call_defer(const void* object, std::size_t size,
                                   const std::type_info& result)
{
    auto* context = gantry::own_context();
    auto* served = gantry::ServedCall::current();
    // The object may be of a class that has the server class as a base, at any offset.
    const auto begin = reinterpret_cast<std::uintptr_t>(object);
    while (served != nullptr && reinterpret_cast<std::uintptr_t>(served->object) - begin >= size)
    {
        served = served->outer;
    }
    if (context == nullptr || served == nullptr || served->is_deferred ||
        served->reply_form == nullptr || served->reply_form->type != result ||
        sd_bus_message_get_bus(served->message) != GANTRY_get_sd_bus(context->bus))
    {
        throw sdbusplus::exception::SdBusError(EINVAL, "gantry::defer");
    }
    auto* call =
        gantry::open_call(*context, {served->object, nullptr, served->reply_form}, served->message);
    if (call == nullptr)
    {
        served->fail(SD_BUS_ERROR_LIMITS_EXCEEDED, too_many_calls);
        throw sdbusplus::exception::SdBusError(ENOBUFS, "gantry::defer");
    }
    served->is_deferred = true;
    return call;
}

void GANTRY_cpp_call_reply(GANTRY_call** call, void* result, int* error)
{
    const auto answer = [=]
    {
        auto* open = gantry::find_open(gantry::own_context(), *call);
        if (open == nullptr || open->called.form == nullptr)
        {
            return EINVAL;
        }
        *call = nullptr;
        const auto* form = open->called.form;
        gantry::send_answer(*open,
                            [=](sdbusplus::message_t& reply) { form->append(reply, result); });
        return 0;
    };
    gantry::host_boundary(GANTRY_HERE, error, answer);
}

void GANTRY_cpp_call_drop(GANTRY_call* call) noexcept
{
    const gantry::NoCancellation no_cancellation;
    if (auto* open = gantry::find_open(gantry::own_context(), call); open != nullptr)
    {
        gantry::AnsweringCall(*open).refuse(SD_BUS_ERROR_NO_REPLY,
                                            "the call was dropped without an answer");
    }
}
