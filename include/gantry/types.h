/*
 * The ten basic types in C and D-Bus: byte (y), boolean (b), int16 (n), uint16 (q), int32 (i),
 * uint32 (u), int64 (x), uint64 (t), double (d) and string (s), with functions that log values and
 * make test values. <gantry/types.hpp> reads them from messages and appends them to messages.
 */
#ifndef GANTRY_TYPES_H
#define GANTRY_TYPES_H

#include <gantry/export.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

GANTRY_BEGIN_C

/* Passes the name and the C type of each type but string to the macro X. D-Bus's letters are, in
 * this order, y b n q i u x t d. */
#define GANTRY_FIXED_SIZE_TYPES(X)                                                                 \
    X(byte, unsigned char)                                                                         \
    X(boolean, bool)                                                                               \
    X(int16, short)                                                                                \
    X(uint16, unsigned short)                                                                      \
    X(int32, int)                                                                                  \
    X(uint32, unsigned int)                                                                        \
    X(int64, long)                                                                                 \
    X(uint64, unsigned long)                                                                       \
    X(double, double)

/*
 * Log a value, or make one for a test. The first function logs a value with a name at trace level;
 * if either pointer is null, it logs nothing. The second one makes a value from a name, which may
 * be null, and a seed: equal arguments give equal values.
 */
#define GANTRY_DECLARE_TYPE(type, value)                                                           \
    GANTRY_API void GANTRY_##type##_c_debug(const char* name, value* logged);                      \
    GANTRY_API value GANTRY_##type##_c_skeleton(const char* name, int seed);
GANTRY_FIXED_SIZE_TYPES(GANTRY_DECLARE_TYPE)
#undef GANTRY_DECLARE_TYPE

/* Log a string, or make one for a test, as the functions of the other types do. The caller releases
 * the text that is made with free(3); it is null if memory runs out. */
GANTRY_API void GANTRY_string_c_debug(const char* name, char** logged);
GANTRY_API char* GANTRY_string_c_skeleton(const char* name, int seed);

GANTRY_END_C

#endif
