// Made by gantrygen from com/orvane/velmar/system/BLT/server.xml. Changes belong there.
#include <com/orvane/velmar/system/BLT/gantry_server.hpp>

#include "descriptor.hpp"

namespace
{

using GANTRY_com_orvane_velmar_system_BLT::BLT;

constexpr char source_stem[] = "gantry_server";

void destroy(void* object)
{
    gantry::destroy(object, BLT::descriptor);
}

} // namespace

namespace GANTRY_com_orvane_velmar_system_BLT
{

BLT::BLT(sdbusplus::bus::bus& bus, const char* path) :
    sdbusplus::server::com::orvane::velmar::system::BLT(bus, path)
{
}

BLT::~BLT()
{
    gantry::release(inst);
}

const gantry::Descriptor BLT::descriptor{
    .interface = interface,
    .path = "/com/orvane/velmar/system/BLT",
    .vtable = _vtable,
    .properties = &properties,
    .create = gantry::create<BLT>,
    .instance_of = gantry::instance_of<BLT>,
    .remove = gantry::remove<BLT>,
    .destroy = destroy,
};

} // namespace GANTRY_com_orvane_velmar_system_BLT

void GANTRY_instantiate__com_orvane_velmar_system_BLT(GANTRY_cpp_context* context,
                                                      const void* table, const char* path,
                                                      void* user_private)
{
    gantry::instantiate(GANTRY_HERE, BLT::descriptor, context, table, path, user_private);
}
