/*
 * An object as its host sees it: the first argument of each of its callbacks. The record belongs
 * to the object and lives exactly as long. All functions belong on the context's thread; with a
 * null instance or a null `out` they do nothing, and *out stays as it was.
 */
#ifndef GANTRY_INSTANCE_H
#define GANTRY_INSTANCE_H

#include <gantry/context.h>

GANTRY_BEGIN_C

typedef struct GANTRY_instance GANTRY_instance;

/* Sets *out to the context that the object was published on, a GANTRY_cpp_context*. */
GANTRY_API void GANTRY_instance_get_context(GANTRY_instance* instance, void** out);

/*
 * Sets *out to a copy of the object's path, which is the caller's to release with
 * GANTRY_instance_path_free and outlives the object; null when memory is short.
 */
GANTRY_API void GANTRY_instance_get_path(GANTRY_instance* instance, char** out);

/* Releases such a copy and sets *path to null. Null, or null in *path, is nothing to do. */
GANTRY_API void GANTRY_instance_path_free(char** path);

/* Sets *out to the pointer that the host gave with the object. */
GANTRY_API void GANTRY_instance_get_user_private(GANTRY_instance* instance, void** out);

GANTRY_END_C

#endif
