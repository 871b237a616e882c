/*
 * What the host publishes once, when it starts: a function for each topic. `sys` is a mounted sysfs
 * or a recorded tree (sysfs.h). A failure is logged, and the rest is still published.
 */
#ifndef INVENTORY_H
#define INVENTORY_H

#include <gantry/gantry.h>

/* Whether the inventory is ready, a HWISupport: false until declare_readiness. */
void publish_readiness(GANTRY_cpp_context* context);
void declare_readiness(GANTRY_cpp_context* context);

/* The short record of the firmware that the machine started from, a BLT. Without DMI it describes
 * the kernel instead. */
void publish_firmware(GANTRY_cpp_context* context, const char* sys);

/* The long record of that firmware, a BiosSoftwareInventory; none without DMI. */
void publish_software(GANTRY_cpp_context* context, const char* sys);

/* What DMI tells of the board, the product and the chassis, a HWIOemFruCustomData; none without
 * DMI. */
void publish_fru(GANTRY_cpp_context* context, const char* sys);

/* The boot configuration of a machine with EFI firmware: a BootDevice for each load option, and a
 * BootSequence with the order in which they are tried. */
void publish_boot(GANTRY_cpp_context* context, const char* sys);

/* For each PCI device a HWIStndConfig with its location, identity and class, and a HWIPcie with its
 * link. */
void publish_pci_devices(GANTRY_cpp_context* context, const char* sys);

/* A USB for each USB device, hubs included. */
void publish_usb_devices(GANTRY_cpp_context* context, const char* sys);

#endif
