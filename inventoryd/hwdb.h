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

/* Stores the names of the device at this directory, by its modalias; if that is null, by that which
 * the device has in a file. A name that isn't known leaves its property unchanged. A record has the
 * names in the device's files names/vendor, names/product and names/subclass. */
void hwdb_put(struct object* object, const char* device, const char* modalias,
              struct hwdb_members members);

/* Closes the database, which the first hwdb_put opens. */
void hwdb_close(void);

#endif
