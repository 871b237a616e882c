// The instance that forwards to libsystemd.

#include "sdbusplus/sdbus.hpp"

namespace sdbusplus
{

// Trivially destructible, so a thread that exits after static destruction can still use it.
constinit SdBusImpl sdbus_impl;

} // namespace sdbusplus
