#include "spare.h"

#include <com/example/cooling/Pump/gantry_server.hpp>

#include <cerrno>
#include <gantry/context.hpp>
#include <gantry/object.hpp>
#include <sdbusplus/exception.hpp>

namespace
{

using Server = sdbusplus::server::com::example::cooling::Pump;

/** A spare pump keeps the speed that it has, and can't be primed. */
class Spare : public Server
{
  public:
    using Server::Server;
    using Server::speed;

    std::string prime(std::uint32_t /*seconds*/) override
    {
        throw sdbusplus::exception::SdBusError(EBUSY, "spare");
    }
    std::uint32_t speed(std::uint32_t /*value*/) override
    {
        throw sdbusplus::exception::SdBusError(EPERM, "spare");
    }
};

} // namespace

void set_curve(GANTRY_instance* instance)
{
    using GANTRY_com_example_cooling_Pump::Pump;

    if (auto* pump = gantry::object<Pump>(instance))
    {
        pump->setPropertyByName("Curve", decltype(pump->curve()){{600, 0.5}, {1200, 1.25}});
    }
}

bool publish_spare(GANTRY_cpp_context* context)
try
{
    static const auto* const spare = new Spare(context->bus, "/com/example/cooling/Spare");
    return spare->getPropertyByName("Speed") == Server::PropertyVariant{std::uint32_t{600}};
}
catch (const std::exception& failure)
{
    return false;
}
