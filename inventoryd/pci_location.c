#include "pci_location.h"

#include <inttypes.h>
#include <stdio.h>

bool pci_location_parse(const char* address, struct pci_location* location)
{
    char behind = '\0';
    return sscanf(address, "%8" SCNx32 ":%2" SCNx32 ":%2" SCNx32 ".%1" SCNx32 "%c",
                  &location->segment, &location->bus, &location->device, &location->function,
                  &behind) == 4;
}
