/*
 * A PCI device's location as the kernel writes it: segment, bus, device and function, such as
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

/* False if the address has another format, like those of other buses. */
bool pci_location_parse(const char* address, struct pci_location* location);

#endif
