/*
 * Arrays in C: a record with a pointer to the elements and their number. An empty array is a null
 * pointer instead of a pointer to a record: a host must accept null for every array, and may pass
 * null for every array. A record that a callback receives is valid during the call. The library
 * takes ownership of a record that a callback stores in an output: the record, its elements and
 * each text in it must come from malloc(3) or the like, and the library releases them with free(3).
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

/* An array of arrays; a null item is an empty array. */
GANTRY_ARRAY_RECORD(uint32_array, GANTRY_uint32_array*)

#undef GANTRY_ARRAY_RECORD

GANTRY_END_C

#endif
