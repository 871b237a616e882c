#include "method_callback.hpp"

#include <sdbusplus/server/transaction.hpp>
#include <string>

namespace gantry
{

int set_error(sdbusplus::SdBusInterface* bus, sd_bus_error* error,
              const sdbusplus::exception::SdBusError& failure)
{
    const std::string text = for_bus(std::string(failure.description()));
    return bus->sd_bus_error_set(error, failure.name(), text.c_str());
}

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
