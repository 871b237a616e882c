#include "method_callback.hpp"

#include <sdbusplus/server/transaction.hpp>
#include <string>

namespace gantry
{

namespace
{

/** Sets a failure as the client's error, unless the call was deferred. Its text may come from a
 *  host, so it is repaired. */
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

} // namespace

int at_method_edge(const ServedCall& served, sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                   CallReference call)
{
    return at_bus_edge(
        [&]
        {
            try
            {
                return call();
            }
            catch (const sdbusplus::exception::SdBusError& failure)
            {
                return set_error(served, bus, error, failure);
            }
            catch (const Taken& taken)
            {
                return taken.result;
            }
        },
        as_handled);
}

void pass_taken(ServedCall& served, sd_bus_error* error)
{
    throw Taken{served.take(error)};
}

void pass_failure(const ServedCall& served, sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                  const sdbusplus::exception::SdBusError& failure)
{
    throw Taken{set_error(served, bus, error, failure)};
}

int call_object_message_method(sd_bus_message* message, Object& object,
                               sdbusplus::SdBusInterface* bus, sd_bus_error* error,
                               MessageMethod method)
{
    ServedCall served(&object, message, ServedCall::Kind::method);
    return at_method_edge(served, bus, error,
                          [&]
                          {
                              sdbusplus::message::message wrapped(message, bus);
                              sdbusplus::server::transaction::set_id(wrapped);
                              (object.*method)(wrapped);
                              return served.is_taken() ? served.take(error) : 1;
                          });
}

} // namespace gantry
