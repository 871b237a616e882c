/*
 * The machine's PCI devices: for each one a HWIStndConfig with its location, identity and class,
 * and a HWIPcie with its link.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

void publish_pci_devices(GANTRY_cpp_context& context, const sysfs::Directory& sys);
