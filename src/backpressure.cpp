#include "backpressure.hpp"

#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "instance.hpp"
#include "wire_size.hpp"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string_view>

namespace gantry
{
namespace
{

constexpr std::size_t max_waiting = 8U << 20U;
constexpr std::size_t usual_reply = 4U << 10U;
constexpr std::uint32_t looked_at = 64;
constexpr std::size_t max_managed = 12U << 20U;
constexpr std::uint64_t managed_period = 5'000'000; // microseconds

/** With so many queued messages a call gets no answer at all, since a refusal would be queued, too.
 *  dbus-daemon doesn't let the clients of one user wait for more replies. */
constexpr std::uint64_t max_refusals = 32'768;

/** The estimated bytes, in a reply to GetManagedObjects, of a property without its texts, and of an
 *  object without its properties. */
constexpr std::size_t property_size = 32;
constexpr std::size_t object_size = 512;

std::uint64_t now() noexcept
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000;
}

/** The estimated bytes of an object in a reply to GetManagedObjects. */
std::size_t size_of(const GANTRY_instance& object)
{
    std::size_t size = object_size;
    const auto& descriptor = *object.descriptor;
    const auto* row = descriptor.properties != nullptr ? descriptor.properties->rows() : nullptr;
    for (const auto* each = descriptor.vtable; each->type != _SD_BUS_VTABLE_END; ++each)
    {
        if (!is_property(*each))
        {
            continue;
        }
        size += property_size + std::strlen(each->x.property.member);
        // The rows behind the header have the order of the table.
        if (row != nullptr && (++row)->type == PropertyTypes::tag<std::string>())
        {
            const auto get = accessors_of<std::string>(*row).get;
            size += (static_cast<const Object*>(object.the_service)->*get)().size();
        }
    }
    return size;
}

/** The estimated bytes of the reply to a GetManagedObjects at that path. */
std::size_t size_below(const GANTRY_cpp_context& context, std::string_view root)
{
    std::size_t size = 0;
    for (const auto* each = context.state->objects.oldest(); each != nullptr; each = each->newer)
    {
        size += is_below(root, each->path) ? size_of(*each) : 0;
    }
    return size;
}

/** Whether messages wait to be read after the present one. */
bool has_unread(sd_bus* bus)
{
    std::uint64_t queued = 0;
    int unread = 0;
    sd_bus_get_n_queued_read(bus, &queued);
    ioctl(sd_bus_get_fd(bus), FIONREAD, &unread);
    return queued > 0 || unread > 0;
}

/** The estimated bytes of the reply to a call. */
std::size_t size_of_reply(sd_bus_message* call, const GANTRY_cpp_context& context)
{
    const char* interface = nullptr;
    const GANTRY_instance* object = nullptr;
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus.Properties", nullptr) > 0 &&
        sd_bus_message_read_basic(call, SD_BUS_TYPE_STRING, &interface) > 0)
    {
        object = context.state->objects.find(interface, sd_bus_message_get_path(call));
        sd_bus_message_rewind(call, 1);
    }
    return std::max(usual_reply, object != nullptr ? size_of(*object) : 0);
}

int refuse(sd_bus_message* call, std::uint64_t queued)
{
    if (queued < max_refusals)
    {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_LIMITS_EXCEEDED, too_much_unread);
    }
    return 1;
}

/** Whether the write queue, which isn't empty, has room for another reply. If so, counts it. */
bool has_room(sd_bus_message* call, GANTRY_cpp_context& context, std::uint64_t queued)
{
    auto& state = context.state->backpressure;
    // Some of the replies since the queue was empty may have been written, so each message in the
    // queue counts as the average of them all.
    if (state.calls > 0 && state.bytes / state.calls * std::min(state.calls, queued) > max_waiting)
    {
        return false;
    }
    ++state.calls;
    state.bytes += size_of_reply(call, context);
    return true;
}

} // namespace

int refuse_if_too_much_waits(sd_bus_message* message, Backpressure& pressure)
{
    std::uint8_t type = 0;
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(sd_bus_message_get_bus(message), &queued);
    auto& changes = pressure.context->state->changes;
    const bool must_see = changes.mark() != 0;
    if (must_see && sd_bus_message_is_method_call(message, nullptr, "GetManagedObjects") > 0)
    {
        changes.listed();
    }
    if (queued == 0)
    {
        pressure.calls = pressure.bytes = 0;
        pressure.unseen = must_see ? 1 : looked_at;
        return 0;
    }
    pressure.unseen = 1;
    if (sd_bus_message_get_type(message, &type); type != SD_BUS_MESSAGE_METHOD_CALL)
    {
        return 0;
    }
    return bus_boundary(
        [&] { return has_room(message, *pressure.context, queued) ? 0 : refuse(message, queued); },
        as_handled);
}

bool may_get_managed(sd_bus_message* call, GANTRY_cpp_context& context)
{
    const char* const sender = sd_bus_message_get_sender(call);
    if (sender == nullptr)
    {
        return true;
    }
    auto& managed = context.state->backpressure.managed;
    const auto time = now();
    // Replies that the bus hasn't read yet stay counted.
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(sd_bus_message_get_bus(call), &queued);
    if (queued == 0)
    {
        std::erase_if(managed, [time](const auto& each)
                      { return time - each.second.last > managed_period; });
        if (const auto own = managed.find(sender);
            own != managed.end() && !has_unread(sd_bus_message_get_bus(call)))
        {
            managed.erase(own);
        }
    }
    std::size_t others = 0;
    std::for_each(managed.begin(), managed.end(),
                  [&others](const auto& each) { others += each.second.bytes; });
    // Checked first, since estimating the objects takes as long as some hundred refusals.
    if (others > max_managed)
    {
        return false;
    }
    const std::size_t size = size_below(context, sd_bus_message_get_path(call));
    // A bus would close the connection for a message of that size.
    if (size > max_value_size())
    {
        return false;
    }
    auto& own = managed[sender];
    own.bytes += size;
    own.last = time;
    return true;
}

} // namespace gantry
