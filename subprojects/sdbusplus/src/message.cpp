// A message's functions other than reading and appending: its reply, sending it.

#include "sdbusplus/message.hpp"

#include "check.hpp"

namespace sdbusplus
{
namespace message
{

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
