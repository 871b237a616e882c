// A message holds one reference on an sd-bus message. It is read from its start or, while under
// construction, filled and sent. sd-bus keeps the read position, so all holders of a message share
// it.
#pragma once

#include "sdbusplus/message/append.hpp"
#include "sdbusplus/message/read.hpp"
#include "sdbusplus/sdbus.hpp"

#include <cstdint>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace sdbusplus
{
namespace message
{

using msgp_t = sd_bus_message*;

namespace details
{

struct MessageDeleter
{
    SdBusInterface* intf;

    void operator()(sd_bus_message* m) const
    {
        intf->sd_bus_message_unref(m);
    }
};

} // namespace details

class message
{
  public:
    /** Takes a further reference. */
    explicit message(msgp_t m, SdBusInterface* intf = &sdbus_impl) :
        message(intf->sd_bus_message_ref(m), intf, std::false_type{})
    {
    }

    /** Takes over the caller's reference. */
    message(msgp_t m, SdBusInterface* intf, std::false_type) :
        reference(m, details::MessageDeleter{intf})
    {
    }

    explicit operator bool() const noexcept
    {
        return reference != nullptr;
    }

    /** The sd-bus message, valid as long as this object holds it. */
    msgp_t get() const noexcept
    {
        return reference.get();
    }

    /**
     * Reads the next values and sets the arguments only after all have been read. Throws SdBusError
     * naming the first call that failed.
     */
    template <class... Ts>
    void read(Ts&... values)
    {
        std::tie(values...) = read_values<Ts...>(interface(), get());
    }

    /** Reads the next values and returns them, more than one as a tuple. Throws like read. */
    template <class... Ts>
    auto unpack()
    {
        if constexpr (sizeof...(Ts) == 1)
        {
            return std::get<0>(read_values<Ts...>(interface(), get()));
        }
        else
        {
            return read_values<Ts...>(interface(), get());
        }
    }

    /**
     * Appends the values in order. If one can't be appended, sending the message fails. Throws
     * std::bad_variant_access for a variant without a value.
     */
    template <class... Ts>
    void append(const Ts&... values)
    {
        sdbusplus::message::append(interface(), get(), values...);
    }

    /**
     * Makes a reply to this call, which the caller fills and sends. Throws SdBusError with
     * "sd_bus_message_new_method_return".
     */
    message new_method_return();

    /** Sends this reply. Throws SdBusError with "sd_bus_send". */
    void method_return()
    {
        send();
    }

    /** Sends this signal. Throws SdBusError with "sd_bus_send". */
    void signal_send()
    {
        send();
    }

  private:
    SdBusInterface* interface() const noexcept
    {
        return reference.get_deleter().intf;
    }

    void send();

    std::unique_ptr<sd_bus_message, details::MessageDeleter> reference;
};

} // namespace message

using message_t = message::message;

} // namespace sdbusplus
