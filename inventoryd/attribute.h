/*
 * Maps properties to the files that hold their values. A table of these fills most of an object.
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

/* Reads the files of one directory. A missing file leaves its property unchanged. */
void attributes_read(struct object* object, const char* directory,
                     const struct attribute* attributes, size_t count);

#endif
