#include "method_callback.hpp"

#include <sdbusplus/server/transaction.hpp>
#include <string>

namespace gantry
{

int set_error(const ServedCall& served, sdbusplus::SdBusInterface* bus, sd_bus_error* error,
              const sdbusplus::exception::SdBusError& failure)
{
    if (served.is_deferred)
    {
        return 1;
    }
    const std::string text = for_bus(std::string(failure.description()));
    return bus->sd_bus_error_set(error, failure.name(), text.c_str());
}

int call_object_message_method(sd_bus_message* message, Object& object,
                               sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                               MessageMethod method)
{
    return at_method_edge(message, object, bus, error,
                          [&](ServedCall& served)
                          {
                              sdbusplus::message::message wrapped(message, bus);
                              sdbusplus::server::transaction::set_id(wrapped);
                              (object.*method)(wrapped);
                              return served.is_taken() ? served.take(error) : 1;
                          });
}

} // namespace gantry
