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
 *
 * `function` is the directory of a PCI function here.
 */
#ifndef CARD_H
#define CARD_H

#include "sysfs.h"

enum
{
    card_name_size = 64
};

/* A PCI function's location, as the kernel writes it in 0000:00:1f.3. */
struct pci_location
{
    uint32_t segment;
    uint32_t bus;
    uint32_t device;
    uint32_t function;
};

/* False if the address has another format, like those of other buses. */
bool pci_location_parse(const char* address, struct pci_location* location);

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

/* Whether a PCI function is of that class and no virtual one; `code` has the class and the
 * subclass, such as 0x0C04 for Fibre Channel. Any subclass will do if it is 0xFF. */
bool card_has_class(const char* function, unsigned int code);

/* Puts what the slots' interfaces have in common: the FQDD, the identity, the location, what the
 * card's VPD tells, the width of its link, and the form of its slot. The card's function is the
 * first one of the slot's class. */
void card_put_slot(struct object* object, const struct card* card, const char* fqdd);

/* Puts a partition's location on the PCI bus, its NUMA node, which is 65535 if it has none, and how
 * many functions the function has with its virtual ones: now, and at most. */
void card_put_function(struct object* object, const struct card* card);

/* Puts the identity of a PCI function: as texts or numbers, as the properties are. */
void card_put_identity(struct object* object, const char* function);

/* Puts the names of the device at this directory, of its vendor, its product and its subclass, from
 * the system's hardware database, where it is installed, or from a list of PCI's names. It is asked
 * with the modalias; if that is null, with the one that the device has in a file. hwdb_close closes
 * the database, which the first hwdb_put opens. */
void hwdb_put(struct object* object, const char* device, const char* modalias);
void hwdb_close(void);

/* Puts what the function's maker has written in its vital product data, tagged items of which the
 * kernel shows the bytes to root alone: the product's name, and its part and serial numbers.
 * Returns whether it has a part number. */
bool vpd_put(struct object* object, const char* function);

/* Puts the slot of the system board that has the object's device, a PCI function, as the firmware
 * describes it in a DMI record of type 9, which only root may read: codes or texts, as the
 * properties are. */
void dmi_put_slot(struct object* object);

/* Puts the versions of a function's firmware, and, if they are wanted, its part and serial numbers:
 * what devlink tells, or, where its driver doesn't take part in devlink, what the driver of its
 * network interface does. */
void versions_put(struct object* object, const char* function, bool with_numbers);

#endif
