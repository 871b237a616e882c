/*
 * The network interfaces of a PCI device. `device` is its directory.
 */
#ifndef PCI_INTERFACES_H
#define PCI_INTERFACES_H

#include "ethtool.h"

/* Calls `visit` with the directory and name of each interface. */
void pci_each_interface(const char* device,
                        void (*visit)(void* data, const char* path, const char* name), void* data);

/* What their driver tells of the device. The texts are empty if it tells nothing. */
struct ethtool_drvinfo pci_ask_driver(const char* device);

#endif
