/*
 * The slots of the system board as its firmware describes them in DMI records of type 9, which only
 * root may read.
 */
#ifndef DMI_SLOT_H
#define DMI_SLOT_H

#include "pci_location.h"

enum
{
    dmi_slot_name_size = 65
};

struct dmi_slot
{
    char name[dmi_slot_name_size];
    uint8_t type; /* these three are DMI's codes */
    uint8_t width;
    uint8_t length;
    uint16_t number;
};

/* Finds the slot of the device at this location; any of its functions will do. */
bool dmi_slot_find(struct dmi_slot* slot, const struct pci_location* location);

/* How the slot's length is called; null for a code that isn't known. */
const char* dmi_slot_length_name(const struct dmi_slot* slot);

#endif
