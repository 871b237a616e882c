/*
 * The inventory's record of the system firmware, as one BiosSoftwareInventory: versions and dates
 * that DMI tells. Nothing where there is no DMI.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

void publish_software(GANTRY_cpp_context& context, const sysfs::Directory& sys);
