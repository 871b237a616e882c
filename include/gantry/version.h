/*
 * The version of the library: that of the headers a host was built with, and that of the library it
 * runs with. Versions with the same soname are compatible (see docs/abi.md).
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

/* Returns the running library's version, such as "0.1.0", which lives as long as the program. May
 * be called on any thread. */
GANTRY_API const char* GANTRY_version(void);

GANTRY_END_C

#endif
