// A message's functions other than reading and appending: its bus, its reply, sending it.

#include "sdbusplus/message.hpp"

#include "check.hpp"
#include "sdbusplus/bus.hpp"

namespace sdbusplus
{
namespace message
{

bus::bus message::get_bus() const
{
    return bus::bus(interface()->sd_bus_message_get_bus(get()), interface());
}

uint64_t message::get_cookie() const
{
    uint64_t cookie = 0;
    check(interface()->sd_bus_message_get_cookie(get(), &cookie), "sd_bus_message_get_cookie");
    return cookie;
}

message message::new_method_return()
{
    sd_bus_message* reply = nullptr;
    check(interface()->sd_bus_message_new_method_return(get(), &reply),
          "sd_bus_message_new_method_return");
    return message(reply, interface(), std::false_type{});
}

void message::send()
{
    sd_bus* b = interface()->sd_bus_message_get_bus(get());
    check(interface()->sd_bus_send(b, get(), nullptr), "sd_bus_send");
}

} // namespace message
} // namespace sdbusplus
