#include "method_adapter.hpp"

#include <sdbusplus/server/transaction.hpp>
#include <string>

namespace gantry
{

namespace
{

/** Sets a failure as the client's error, unless the call was deferred. */
int set_error(const ServedCall& served, sdbusplus::SdBusInterface* bus, sd_bus_error* error,
              const sdbusplus::exception::SdBusError& failure)
{
    if (served.is_deferred)
    {
        return 1;
    }
    return bus->sd_bus_error_set(error, failure.name(), failure.description());
}

} // namespace

int serve_method(sd_bus_message* message, Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, AnyMethod method, MethodBody body)
{
    ServedCall served(&object, message, ServedCall::Kind::method);
    const auto serve = [&]
    {
        try
        {
            sdbusplus::message_t call(message, bus);
            sdbusplus::server::transaction::set_id(call);
            body(call, served, object, method);
            return served.is_taken() ? served.take(error) : 1;
        }
        catch (const sdbusplus::exception::SdBusError& failure)
        {
            return set_error(served, bus, error, failure);
        }
    };
    return bus_boundary(serve, as_handled);
}

void pass_call(sdbusplus::message_t& call, const ServedCall& /*served*/, Object& object,
               AnyMethod method)
{
    (object.*method)(call);
}

} // namespace gantry
