// The instance that forwards to libsystemd.

#include "sdbusplus/sdbus.hpp"

namespace sdbusplus
{
namespace
{

class Forwarder final : public SdBusImpl
{
};

// Trivially destructible, so a thread that exits after static destruction can still use it.
constinit Forwarder forwarder;

} // namespace

constinit SdBusImpl& sdbus_impl = forwarder;

} // namespace sdbusplus
