/*
 * The machine's USB devices, hubs included: a USB each.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

void publish_usb_devices(GANTRY_cpp_context& context, const sysfs::Directory& sys);
