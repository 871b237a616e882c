#include "method_callback.hpp"

#include <sdbusplus/server/transaction.hpp>

namespace gantry
{

int call_object_message_method(sd_bus_message* message, Object& object,
                               sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                               MessageMethod method)
{
    return at_method_edge(bus, error,
                          [&]
                          {
                              sdbusplus::message::message wrapped(message, bus);
                              sdbusplus::server::transaction::set_id(wrapped);
                              (object.*method)(wrapped);
                              return 1;
                          });
}

} // namespace gantry
