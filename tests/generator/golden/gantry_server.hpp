// Made by gantrygen from com/orvane/velmar/system/BLT/server.xml. Changes belong there.
#pragma once

#include <com/orvane/velmar/system/BLT/gantry_server.h>
#include <com/orvane/velmar/system/BLT/server.hpp>

struct GANTRY_instance;

namespace gantry
{
struct Descriptor;
} // namespace gantry

namespace GANTRY_com_orvane_velmar_system_BLT
{

class GANTRY_API BLT : public sdbusplus::server::com::orvane::velmar::system::BLT
{
  public:
    BLT(sdbusplus::bus::bus& bus, const char* path);
    BLT(const BLT&) = delete;
    BLT(BLT&&) = delete;
    BLT& operator=(const BLT&) = delete;
    BLT& operator=(BLT&&) = delete;
    ~BLT() override;

    /** What the frame knows of this class. */
    GANTRY_HIDDEN static const gantry::Descriptor descriptor;

    /** The record that joins this object to its host. */
    GANTRY_instance* inst = nullptr;
};

} // namespace GANTRY_com_orvane_velmar_system_BLT
