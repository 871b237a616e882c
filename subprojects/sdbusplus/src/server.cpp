// The part of serve() that doesn't depend on the body's type.

#include "sdbusplus/sdbuspp_support/server.hpp"
#include "sdbusplus/exception.hpp"
#include "sdbusplus/server/transaction.hpp"

namespace sdbusplus
{
namespace sdbuspp
{
namespace details
{

int serve(sd_bus_message* msg, SdBusInterface* intf, sd_bus_error* error,
          void (*body)(const void* what, message::message& m), const void* what)
{
    try
    {
        message::message m(msg, intf);
        server::transaction::set_id(m);
        body(what, m);
    }
    catch (const exception::internal_exception& e)
    {
        return e.set_error(intf, error);
    }
    return 1;
}

} // namespace details
} // namespace sdbuspp
} // namespace sdbusplus
