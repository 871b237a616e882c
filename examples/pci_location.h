/*
 * Where a PCI device sits, as the kernel spells it: segment, bus, device and function,
 * 0000:00:1f.3.
 */
#ifndef PCI_LOCATION_H
#define PCI_LOCATION_H

#include <stdbool.h>
#include <stdint.h>

struct pci_location
{
    uint32_t segment;
    uint32_t bus;
    uint32_t device;
    uint32_t function;
};

/* False if the address is spelled in another way, as those of other buses are. */
bool pci_location_parse(const char* address, struct pci_location* location);

#endif
