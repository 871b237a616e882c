/*
 * The firmware that the machine started from, as one BLT: what DMI tells, or the kernel where there
 * is no DMI.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

void publish_firmware(GANTRY_cpp_context& context, const sysfs::Directory& sys);
