/*
 * An object as its host sees it: the first argument of each method's callback. The record belongs
 * to the object and lives exactly as long: until GANTRY_instance_free, or with its context. All
 * functions belong on the context's thread; with a null instance or a null `out` they do nothing,
 * and *out stays as it was.
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

/* Sets *out to the name of the object's interface, which lives as long as the library. */
GANTRY_API void GANTRY_instance_get_interface(GANTRY_instance* instance, const char** out);

/*
 * Sets *out to the context's object of that interface at that path, or to null when there is none.
 * A null path means the oldest object of the interface; a null context the calling thread's.
 */
GANTRY_API void GANTRY_instance_find(GANTRY_cpp_context* context, const char* interface,
                                     const char* path, GANTRY_instance** out);

/*
 * Tells the bus of an object that came after its service did: sends InterfacesAdded with all
 * properties from the object's path. Publishing alone sends nothing. `error` may be null; it gets 0
 * or a positive errno: EINVAL for a null instance, else why the signal couldn't be sent, which the
 * log tells too.
 */
GANTRY_API void GANTRY_instance_announce_added(GANTRY_instance* instance, int* error);

/*
 * Takes one object off the bus, with its object manager and its record, sends InterfacesRemoved,
 * and sets *instance to null. Null in *instance is nothing to do.
 *
 * It may be called anywhere on the context's thread, the object's own callbacks included. Inside a
 * bus callback the object is no longer found and sends no signals by default from here on, but goes
 * itself when the callback has returned: as long the record stays valid, and the path can't be used
 * for the same interface again.
 */
GANTRY_API void GANTRY_instance_free(GANTRY_instance** instance);

GANTRY_END_C

#endif
