/*
 * The bodies of property_callbacks.hpp, for the files in which gantrygen instantiates them.
 */
#pragma once

#include "block.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "object.hpp"
#include "property_callbacks.hpp"

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/server/transaction.hpp>
#include <utility>

namespace gantry
{

/** Announces a change of a property: at once, or, if a client is writing it and the host may still
 *  refuse, once the host has accepted it. Throws what a getter throws. */
GANTRY_API void announce_or_hold(Object& object, const Property<Object>& row);

/** A write of a text or container below this size isn't checked by has_room(), which leaves room
 * for one such value per property. */
constexpr std::size_t small_size = 1024;

/** Whether a message can hold all properties of the object once the written one has a value of that
 *  size. If not, makes the call fail. */
GANTRY_API bool has_room(ServedCall& served, const Object& object, std::size_t size);

/**
 * Stores a client's value, asks the host, and announces the change if the host accepts it. If the
 * host refuses or throws, the former value is put back, and nothing is announced.
 */
GANTRY_API void store_unless_refused(ServedCall& served, GANTRY_instance& listener,
                                     CallReference store, CallReference put_back);

template <class Type>
Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal, Object& object,
         const Property<Object>& row)
{
    if (stored != value)
    {
        check_wire_size(value);
        stored = std::move(value);
        if (!skip_signal)
        {
            announce_or_hold(object, row);
        }
    }
    return stored;
}

template <class Type>
Type set_and_announce(Object& object, Setter<Type> setter, Type& value)
{
    return (object.*setter)(std::move(value), false);
}

template <class Type>
Type copy_of(const Type& stored)
{
    return stored;
}

template <class Type>
void add_value(WireSize& size, const Property<Object>& row, const Object& object)
{
    size.add_bytes(8, wire_size((object.*accessors_of<Type>(row).get)()));
}

template <class Type>
void set_as(const Property<Object>& row, Object& object, const void* value, bool skip_signal)
{
    const auto setter = accessors_of<Type>(row).set;
    (object.*setter)(Type(*static_cast<const Type*>(value)), skip_signal);
}

/** The call that the thread's transaction was last set for. All getters of one GetAll share it. */
struct Transaction
{
    const sd_bus* bus;
    std::uint64_t cookie;
    std::uint64_t id;

    // The model puts it at a fixed offset from the thread pointer, so that no call is needed to
    // find it.
    [[gnu::tls_model("initial-exec")]] GANTRY_API static constinit thread_local Transaction last;
};

/** Makes the call that `reply` answers the thread's transaction. For a signal, `cookie` is 0. */
GANTRY_API void begin_transaction(const sd_bus* bus, sd_bus_message* reply, std::uint64_t cookie,
                                  sdbusplus::SdBusInterface* bus_interface);

/** Appends a property's value, and returns 1, or a negative errno if that fails. */
template <class Type>
int append(sd_bus_message* reply, sdbusplus::SdBusInterface* bus, const Type& value)
{
    int result = 0;
    if constexpr (std::is_same_v<Type, bool>)
    {
        const int wide = value;
        result = bus->sd_bus_message_append_basic(reply, number_letter<Type>(), &wide);
    }
    else if constexpr (std::is_arithmetic_v<Type>)
    {
        result = bus->sd_bus_message_append_basic(reply, number_letter<Type>(), &value);
    }
    else if constexpr (std::is_same_v<Type, std::string>)
    {
        result = bus->sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, value.c_str());
    }
    else
    {
        sdbusplus::message_t message(reply, bus);
        append_value(message, value);
        // sdbusplus ignores a failure to append, which sd-bus remembers and reports here.
        result = sd_bus_message_append(reply, "");
    }
    return result < 0 ? result : 1;
}

template <class Type>
int get_property(sd_bus* bus, Getter<Type> getter, sdbusplus::SdBusInterface* bus_interface,
                 sd_bus_message* reply, const Object& object, sd_bus_error* error)
{
    const auto get = [&]() __attribute__((always_inline))
    {
        try
        {
            std::uint64_t cookie = 0;
            sd_bus_message_get_reply_cookie(reply, &cookie);
            const auto& last = Transaction::last;
            if (cookie != last.cookie || bus != last.bus ||
                sdbusplus::server::transaction::get_id() != last.id)
            {
                begin_transaction(bus, reply, cookie, bus_interface);
            }
            Type value = (object.*getter)();
            make_sendable(value);
            return append(reply, bus_interface, value);
        }
        catch (const sdbusplus::exception::internal_exception& failure)
        {
            return set_error(bus_interface, error, failure);
        }
    };
    return bus_boundary(get, as_error);
}

/** The body of a write, as serve() calls it. */
template <class Type>
void write_property(sdbusplus::message_t& message, ServedCall& served, Object& object,
                    AnyFunction function)
{
    const auto setter = std::bit_cast<AnnouncingSetter<Type>>(function);
    Type value{};
    read_value(message, value);
    if constexpr (!std::is_arithmetic_v<Type>)
    {
        const std::size_t size = wire_size(value);
        if (size >= small_size && !has_room(served, object, size))
        {
            return;
        }
    }
    auto* listener = find_listener(&object);
    if (listener == nullptr)
    {
        (object.*setter)(std::move(value));
        return;
    }
    const auto accessors = accessors_of<Type>(served.written->row);
    Type former = (object.*accessors.get)();
    store_unless_refused(
        served, *listener, [&] { return (object.*setter)(std::move(value)), 0; },
        [&] { return (object.*accessors.set)(std::move(former), true), 0; });
}

template <class Type>
int set_property(sd_bus_message* value, Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, const WrittenProperty& property,
                 AnnouncingSetter<Type> setter)
{
    return serve(value, object, bus, error, std::bit_cast<AnyFunction>(setter),
                 write_property<Type>, &property);
}

} // namespace gantry

#define GANTRY_NUMBER_PROPERTY(...)                                                                \
    template __VA_ARGS__ set(__VA_ARGS__&, Passed<__VA_ARGS__>, bool, Object&,                     \
                             const Property<Object>&);                                             \
    template int get_property(sd_bus*, Getter<__VA_ARGS__>, sdbusplus::SdBusInterface*,            \
                              sd_bus_message*, const Object&, sd_bus_error*);                      \
    template void set_as<__VA_ARGS__>(const Property<Object>&, Object&, const void*, bool);

#define GANTRY_PROPERTY(...)                                                                       \
    template void add_value<__VA_ARGS__>(WireSize&, const Property<Object>&, const Object&);       \
    GANTRY_NUMBER_PROPERTY(__VA_ARGS__)                                                            \
    template __VA_ARGS__ set_and_announce(Object&, Setter<__VA_ARGS__>, __VA_ARGS__&);             \
    template __VA_ARGS__ copy_of(const __VA_ARGS__&);

#define GANTRY_WRITABLE_PROPERTY(...)                                                              \
    template int set_property(sd_bus_message*, Object&, sdbusplus::SdBusInterface*, sd_bus_error*, \
                              const WrittenProperty&, AnnouncingSetter<__VA_ARGS__>);
