/*
 * Where a PCI device sits, as the kernel spells it: segment, bus, device and function,
 * 0000:00:1f.3.
 */
#pragma once

#include <optional>
#include <string>

struct PciLocation
{
    unsigned int segment;
    unsigned int bus;
    unsigned int device;
    unsigned int function;
};

/** Nothing if the address is spelled in another way, as those of other buses are. */
std::optional<PciLocation> pci_location(const std::string& address);
