/*
 * Arrays as they cross to a host: a block of elements and their number. An empty array is a null
 * pointer wherever a pointer to a record stands, so a host expects null for every array, and may
 * give null for every one. A record that a callback receives is lent to it for the call. One that
 * it stores in an output becomes the library's: the record, its block and each text in it come from
 * malloc() and the like, and the library releases them.
 */
#ifndef GANTRY_RECORDS_H
#define GANTRY_RECORDS_H

#include <gantry/export.h>

GANTRY_BEGIN_C

/* `count` is a number of elements, not of bytes. */
#define GANTRY_ARRAY_RECORD(type, element)                                                         \
    typedef struct GANTRY_##type##_array                                                           \
    {                                                                                              \
        element* data;                                                                             \
        unsigned long count;                                                                       \
    } GANTRY_##type##_array;

GANTRY_ARRAY_RECORD(byte, unsigned char)
GANTRY_ARRAY_RECORD(int16, short)
GANTRY_ARRAY_RECORD(uint16, unsigned short)
GANTRY_ARRAY_RECORD(int32, int)
GANTRY_ARRAY_RECORD(uint32, unsigned int)
GANTRY_ARRAY_RECORD(int64, long)
GANTRY_ARRAY_RECORD(uint64, unsigned long)
GANTRY_ARRAY_RECORD(double, double)
GANTRY_ARRAY_RECORD(string, char*)

/* An array of arrays; a null item is an empty one. */
GANTRY_ARRAY_RECORD(uint32_array, GANTRY_uint32_array*)

#undef GANTRY_ARRAY_RECORD

GANTRY_END_C

#endif
