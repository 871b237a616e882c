/*
 * The bodies of property_callbacks.hpp, for the two files that instantiate them: one for the types
 * of the inventory, one for what the sample interface adds.
 */
#pragma once

#include "announcement.hpp"
#include "call.hpp"
#include "edges.hpp"
#include "for_bus.hpp"
#include "property_callbacks.hpp"

#include <cerrno>
#include <functional>
#include <sdbusplus/message.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>
#include <sdbusplus/server/transaction.hpp>
#include <utility>

namespace gantry
{

template <class Type>
Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal,
         sdbusplus::server::interface::interface& interface, const char* member)
{
    if (stored != value)
    {
        check_wire_size(value);
        stored = std::move(value);
        if (!skip_signal)
        {
            announce(interface, member);
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
Type get(const Type& stored)
{
    return stored;
}

// sdbusplus takes these as a std::function, by reference, which fits into it without an allocation.
// They are named types because a std::function keeps its type's name in the binary.

template <class Type>
struct Get
{
    const Object* object;
    Getter<Type> getter;

    Type operator()() const
    {
        return for_bus((object->*getter)());
    }
};

template <class Type>
struct Set
{
    Object* object;
    AnnouncingSetter<Type> setter;
    const char* member;
    sd_bus_message* message;
    sd_bus_error* error;

    void operator()(Type&& read) const
    {
        auto* listener = find_listener(object);
        if (listener == nullptr)
        {
            (object->*setter)(std::move(read));
            return;
        }
        const auto* row = listener->descriptor->properties->find(member);
        Type former = (object->*accessors_of<Type>(*row).get)();
        bool is_put_back = false;
        const auto set_either = [&]
        {
            (object->*setter)(std::move(std::exchange(is_put_back, true) ? former : read));
            return 0;
        };
        write(*listener, member, message, error, set_either);
    }
};

/**
 * Whether an append to the message has failed, as for lack of memory: sdbusplus doesn't examine
 * that, but sd-bus then refuses every further append with ESTALE. A getter's message has an open
 * variant, which refuses a second value with another error, so nothing is appended here.
 */
inline bool has_failed(sd_bus_message* reply)
{
    constexpr unsigned char second = 0;
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_BYTE, &second) == -ESTALE;
}

/** Appends a basic value. Returns a negative errno if that fails. */
template <class Number>
requires std::is_arithmetic_v<Number>
int append_basic(sd_bus_message* reply, sdbusplus::SdBusInterface* bus, Number value)
{
    using Passed = std::conditional_t<std::is_same_v<Number, bool>, int, Number>;
    const Passed passed = value;
    return bus->sd_bus_message_append_basic(reply, basic_types[PropertyTypes::tag<Number>()],
                                            &passed);
}

inline int append_basic(sd_bus_message* reply, sdbusplus::SdBusInterface* bus,
                        const std::string& value)
{
    return bus->sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, value.c_str());
}

template <class Type>
inline constexpr bool is_basic = std::is_arithmetic_v<Type> || std::is_same_v<Type, std::string>;

/** A message without its own reference: sd-bus holds one during the callback. Taking one would cost
 *  more than everything else that a getter does here. */
union LentMessage
{
    LentMessage(sd_bus_message* message, sdbusplus::SdBusInterface* bus) :
        lent(message, bus, std::false_type())
    {
    }
    ~LentMessage()
    {
    } // NOLINT(modernize-use-equals-default): the default one is deleted

    const sdbusplus::message::message lent;
};

template <class Type>
int get_property(sd_bus_message* reply, const Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, Getter<Type> getter)
{
    if constexpr (is_basic<Type>)
    {
        // A GetAll runs this for each property, so it isn't left to sdbusplus.
        try
        {
            sdbusplus::server::transaction::set_id(LentMessage(reply, bus).lent);
            return append_basic(reply, bus, for_bus((object.*getter)()));
        }
        catch (...)
        {
            return take_for_client(bus, error);
        }
    }
    else
    {
        const Get<Type> get{&object, getter};
        return at_bus_edge(
            [&]
            {
                const int result = sdbusplus::sdbuspp::property_callback(
                    reply, bus, error, std::function<Type()>(std::cref(get)));
                return has_failed(reply) ? -ENOMEM : result;
            },
            as_error);
    }
}

template <class Type>
int set_property(sd_bus_message* value, Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, const char* member, AnnouncingSetter<Type> setter)
{
    const Set<Type> set{&object, setter, member, value, error};
    return at_write_edge(
        [&]
        {
            return sdbusplus::sdbuspp::property_callback(
                value, bus, error, std::function<void(Type &&)>(std::cref(set)));
        });
}

} // namespace gantry

#define GANTRY_NUMBER_PROPERTY(...)                                                                \
    template __VA_ARGS__ set(__VA_ARGS__&, Passed<__VA_ARGS__>, bool,                              \
                             sdbusplus::server::interface::interface&, const char*);               \
    template int get_property(sd_bus_message*, const Object&, sdbusplus::SdBusInterface*,          \
                              sd_bus_error*, Getter<__VA_ARGS__>);

#define GANTRY_PROPERTY(...)                                                                       \
    GANTRY_NUMBER_PROPERTY(__VA_ARGS__)                                                            \
    template __VA_ARGS__ set_and_announce(Object&, Setter<__VA_ARGS__>, __VA_ARGS__&);             \
    template __VA_ARGS__ get(const __VA_ARGS__&);

#define GANTRY_WRITABLE_PROPERTY(...)                                                              \
    template int set_property(sd_bus_message*, Object&, sdbusplus::SdBusInterface*, sd_bus_error*, \
                              const char*, AnnouncingSetter<__VA_ARGS__>);
