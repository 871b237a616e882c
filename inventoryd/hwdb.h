/*
 * Names of vendors, products and classes from the system's hardware database, where it is
 * installed.
 */
#ifndef HWDB_H
#define HWDB_H

#include "object.h"

/* The properties that get a device's names; null for a name that none gets. */
struct hwdb_members
{
    const char* vendor;
    const char* product;
    const char* subclass; /* of PCI devices alone */
};

/* Stores the names of the device with this modalias. A name that the database doesn't have leaves
 * its property unchanged. */
void hwdb_put(struct object* object, const char* modalias, struct hwdb_members members);

/* The same for a device whose directory has its modalias. */
void hwdb_put_device(struct object* object, const char* device, struct hwdb_members members);

/* Closes the database, which the first hwdb_put opens. */
void hwdb_close(void);

#endif
