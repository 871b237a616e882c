#include "pci_configuration.h"

#include "sysfs.h"

#include <stdio.h>
#include <string.h>

void pci_configuration_read(const char* device, struct pci_configuration* configuration)
{
    memset(configuration, 0, sizeof *configuration);
    sysfs_bytes(device, "config", configuration->bytes, sizeof configuration->bytes);
}

unsigned int pci_header_type(const struct pci_configuration* configuration)
{
    return configuration->bytes[0x0E];
}

bool pci_port_type(const struct pci_configuration* configuration, unsigned int* type)
{
    enum
    {
        status = 0x06,
        has_capabilities = 0x10,
        first = 0x34,
        pci_express = 0x10,
        most = (256 - 64) / 4 /* a faulty list may be circular */
    };
    const unsigned char* bytes = configuration->bytes;
    unsigned int at = (bytes[status] & has_capabilities) != 0 ? bytes[first] & 0xFCU : 0;
    for (int count = 0; at != 0 && count < most; ++count)
    {
        if (bytes[at] == pci_express)
        {
            *type = bytes[at + 2] >> 4;
            return true;
        }
        at = bytes[at + 1] & 0xFCU;
    }
    return false;
}

bool pci_serial_number(const struct pci_configuration* configuration, char text[pci_serial_size])
{
    enum
    {
        first = 256, /* of the extended capabilities */
        serial_number = 0x0003,
        size = 12,
        most = (pci_configuration_size - first) / 4
    };
    unsigned int at = first;
    for (int count = 0; at >= first && at <= pci_configuration_size - size && count < most; ++count)
    {
        const unsigned char* bytes = configuration->bytes + at;
        if ((bytes[0] | bytes[1] << 8) == serial_number)
        {
            snprintf(text, pci_serial_size, "%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x", bytes[11],
                     bytes[10], bytes[9], bytes[8], bytes[7], bytes[6], bytes[5], bytes[4]);
            return true;
        }
        at = (bytes[2] >> 4U | (unsigned int)bytes[3] << 4U) & 0xFFCU;
    }
    return false;
}
