/*
 * The bodies of property_callbacks.hpp, for the files in which gantrygen instantiates them.
 */
#pragma once

#include "announcement.hpp"
#include "block.hpp"
#include "exception_boundary.hpp"
#include "for_bus.hpp"
#include "property_callbacks.hpp"
#include "served_call.hpp"
#include "transaction.hpp"

#include <cerrno>
#include <functional>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>
#include <utility>

namespace gantry
{

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
            announce(object, row);
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

// sdbusplus takes it as a std::function, by reference, which fits into it without an allocation. It
// is a named type because a std::function keeps its type's name in the binary.
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
        set_unless_refused(*listener, member, message, error, set_either);
    }
};

/** A message without a reference of its own: sd-bus holds the reply while a getter runs. A
 * reference would cost more than the getter, since it also counts on the connection, atomically. */
union LentMessage
{
    LentMessage(sd_bus_message* message, sdbusplus::SdBusInterface* bus) :
        lent(message, bus, std::false_type{})
    {
    }
    // NOLINTNEXTLINE(modernize-use-equals-default): the default one of a union is deleted
    ~LentMessage()
    {
    }
    LentMessage(const LentMessage&) = delete;
    LentMessage(LentMessage&&) = delete;
    LentMessage& operator=(const LentMessage&) = delete;
    LentMessage& operator=(LentMessage&&) = delete;

    sdbusplus::message_t lent;
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

/** Appends a property's value. Returns a negative errno if it fails. */
template <class Type>
int append(LentMessage& reply, sdbusplus::SdBusInterface* bus, const Type& value)
{
    sd_bus_message* const message = reply.lent.get();
    if constexpr (std::is_same_v<Type, bool>)
    {
        const int wide = value;
        return bus->sd_bus_message_append_basic(message, number_letter<Type>(), &wide);
    }
    else if constexpr (std::is_arithmetic_v<Type>)
    {
        return bus->sd_bus_message_append_basic(message, number_letter<Type>(), &value);
    }
    else if constexpr (std::is_same_v<Type, std::string>)
    {
        return bus->sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, value.c_str());
    }
    else
    {
        append_value(reply.lent, value);
        return has_failed(message) ? -ENOMEM : 1;
    }
}

template <class Type>
int get_property(sd_bus* bus, Getter<Type> getter, sdbusplus::SdBusInterface* bus_interface,
                 sd_bus_message* message, const Object& object, sd_bus_error* error)
{
    const auto get = [&]() __attribute__((always_inline))
    {
        try
        {
            LentMessage reply(message, bus_interface);
            Transaction::enter(bus, reply.lent);
            return append(reply, bus_interface, for_bus((object.*getter)()));
        }
        catch (const sdbusplus::exception::SdBusError& failure)
        {
            return bus_interface->sd_bus_error_set(error, failure.name(), failure.description());
        }
    };
    return bus_boundary(get, as_error);
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
    template __VA_ARGS__ set(__VA_ARGS__&, Passed<__VA_ARGS__>, bool, Object&,                     \
                             const Property<Object>&);                                             \
    template int get_property(sd_bus*, Getter<__VA_ARGS__>, sdbusplus::SdBusInterface*,            \
                              sd_bus_message*, const Object&, sd_bus_error*);

#define GANTRY_PROPERTY(...)                                                                       \
    GANTRY_NUMBER_PROPERTY(__VA_ARGS__)                                                            \
    template __VA_ARGS__ set_and_announce(Object&, Setter<__VA_ARGS__>, __VA_ARGS__&);             \
    template __VA_ARGS__ copy_of(const __VA_ARGS__&);

#define GANTRY_WRITABLE_PROPERTY(...)                                                              \
    template int set_property(sd_bus_message*, Object&, sdbusplus::SdBusInterface*, sd_bus_error*, \
                              const char*, AnnouncingSetter<__VA_ARGS__>);
