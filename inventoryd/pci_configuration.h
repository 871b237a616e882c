/*
 * The configuration space of a PCI device. `device` is its directory. Without CAP_SYS_ADMIN
 * only the first 64 bytes can be read, which hold no capability.
 */
#ifndef PCI_CONFIGURATION_H
#define PCI_CONFIGURATION_H

#include <stdbool.h>

enum
{
    pci_configuration_size = 4096,
    pci_serial_size = sizeof "00-00-00-00-00-00-00-00"
};

/* Bytes that can't be read are zero. */
struct pci_configuration
{
    unsigned char bytes[pci_configuration_size];
};

void pci_configuration_read(const char* device, struct pci_configuration* configuration);

unsigned int pci_header_type(const struct pci_configuration* configuration);

/* The device/port type of a PCI Express device, and a serial number; false if it has none. */
bool pci_port_type(const struct pci_configuration* configuration, unsigned int* type);
bool pci_serial_number(const struct pci_configuration* configuration, char text[pci_serial_size]);

#endif
