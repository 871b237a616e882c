// The one way to libsystemd.

#include "sdbusplus/sdbus.hpp"

namespace sdbusplus
{

// Trivially destroyed, so a thread that ends late in the process's life still finds it.
constinit SdBusImpl sdbus_impl;

} // namespace sdbusplus
