/*
 * Cards. A card is what sits in a slot: a PCI device with all its functions, or a USB device. A
 * slot's object describes a card, a controller's counts its ports, and the names of its ports and
 * partitions begin with its own, so that a port names its slot:
 *
 *     NIC.0000:3b:00         the card in NicSlot and NicController
 *     NIC.0000:3b:00-1       its first port
 *     NIC.0000:3b:00-1-1     the port's first partition, a function
 *     NIC.USB.1-2            an adapter at USB
 *
 * The location in it stays while interfaces are renamed and drivers are bound. A virtual function
 * is none of the card's functions: it belongs to its physical function, which counts it.
 */
#ifndef CARD_H
#define CARD_H

#include "object.h"
#include "pci_location.h"
#include "sysfs.h"

enum
{
    card_name_size = 64
};

struct card
{
    char name[card_name_size];      /* 0000:3b:00 or USB.1-2 */
    char function[sysfs_path_size]; /* the PCI function that was asked for, or the USB device */
    bool is_pci;
    struct pci_location location; /* of that function */
};

/* Finds the card that a device is, or is a part of, such as the directory of a PCI function or of a
 * network interface. False for a virtual function and its devices, and for what is made of software
 * alone. */
bool card_find(struct card* card, const char* device);

/* How many functions the function has with its virtual ones: now, and at most. */
void card_put_functions(struct object* object, const struct card* card);

/* Puts what NicSlot, FCSlot and IBSlot have in common: the FQDD, the identity, the location, and
 * what the card's VPD tells. `function` is its first one of the slot's class. */
void card_put_slot(struct object* object, const struct card* card, const char* fqdd);

/* Whether a PCI function is of that class and no virtual one; `code` has the class and the
 * subclass, such as 0x0C04 for Fibre Channel. Any subclass will do if it is 0xFF. */
bool card_has_class(const char* function, unsigned int code);

/* Puts a partition's location on the PCI bus, and its NUMA node, which is 65535 if it has none. */
void card_put_location(struct object* object, const struct card* card);

#endif
