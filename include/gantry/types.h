/*
 * The ten basic types as they cross between C and D-Bus: values to try a host with, and values in
 * the log. <gantry/types.hpp> has what moves them to and from messages.
 */
#ifndef GANTRY_TYPES_H
#define GANTRY_TYPES_H

#include <gantry/export.h>

#ifndef __cplusplus
#include <stdbool.h>
#endif

GANTRY_BEGIN_C

/* Each type by its name and its C value. D-Bus letters: y b n q i u x t d. */
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
 * GANTRY_<type>_c_debug logs a value at trace level under a name; a null name or value logs
 * nothing. GANTRY_<type>_c_skeleton makes a repeatable value from a name, which may be null, and
 * a seed.
 */
#define GANTRY_DECLARE_TYPE(type, value)                                                           \
    GANTRY_API void GANTRY_##type##_c_debug(const char* name, value* logged);                      \
    GANTRY_API value GANTRY_##type##_c_skeleton(const char* name, int seed);
GANTRY_FIXED_SIZE_TYPES(GANTRY_DECLARE_TYPE)
#undef GANTRY_DECLARE_TYPE

/* The same for strings (D-Bus s). The skeleton's text is the caller's to free(); null when memory
 * is short. */
GANTRY_API void GANTRY_string_c_debug(const char* name, char** logged);
GANTRY_API char* GANTRY_string_c_skeleton(const char* name, int seed);

GANTRY_END_C

#endif
