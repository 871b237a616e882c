/*
 * Which property takes what which file holds: most of an object is a table of these.
 */
#ifndef ATTRIBUTE_H
#define ATTRIBUTE_H

#include "object.h"

struct attribute
{
    const char* member;
    const char* file;
    object_put* put; /* null for text */
    int base;        /* of a number, as for sysfs_number */
};

/* Reads the files of one directory. A file that isn't there leaves its property as it is. */
void attributes_read(struct object* object, const char* directory,
                     const struct attribute* attributes, size_t count);

#endif
