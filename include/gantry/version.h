/*
 * The version of the headers that a host was built with (GANTRY_VERSION, GANTRY_VERSION_MAJOR,
 * GANTRY_VERSION_MINOR and GANTRY_VERSION_PATCH), and that of the library that it runs with.
 * Versions with the same soname are compatible.
 */
#ifndef GANTRY_VERSION_H
#define GANTRY_VERSION_H

#include <gantry/export.h>

#define GANTRY_VERSION_MAJOR 0
#define GANTRY_VERSION_MINOR 1
#define GANTRY_VERSION_PATCH 0

/* "MAJOR.MINOR.PATCH" */
#define GANTRY_VERSION                                                                             \
    GANTRY_VERSION_TEXT(GANTRY_VERSION_MAJOR, GANTRY_VERSION_MINOR, GANTRY_VERSION_PATCH)
#define GANTRY_VERSION_TEXT(major, minor, patch) GANTRY_VERSION_QUOTED(major, minor, patch)
#define GANTRY_VERSION_QUOTED(major, minor, patch) #major "." #minor "." #patch

GANTRY_BEGIN_C

/* Returns the running library's version, such as "0.1.0". The text is valid as long as the program
 * runs. The function may be called on any thread. */
GANTRY_API const char* GANTRY_version(void);

GANTRY_END_C

#endif
