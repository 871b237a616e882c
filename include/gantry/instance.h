/*
 * An instance identifies a published object to its host; it is the first argument of each method's
 * callback. The record belongs to the object and lives as long: until GANTRY_instance_free or the
 * end of its context. Call all functions on the context's thread. With a null instance or a null
 * `out` they do nothing and leave *out unchanged.
 */
#ifndef GANTRY_INSTANCE_H
#define GANTRY_INSTANCE_H

#include <gantry/context.h>

GANTRY_BEGIN_C

typedef struct GANTRY_instance GANTRY_instance;

/* Sets *out to the context that the object was published on, a GANTRY_cpp_context*. */
GANTRY_API void GANTRY_instance_get_context(GANTRY_instance* instance, void** out);

/*
 * Sets *out to a copy of the object's path, or to null if memory runs out. The caller releases the
 * copy with GANTRY_instance_path_free; it may outlive the object.
 */
GANTRY_API void GANTRY_instance_get_path(GANTRY_instance* instance, char** out);

/* Releases such a copy and sets *path to null. Does nothing if `path` or *path is null. */
GANTRY_API void GANTRY_instance_path_free(char** path);

/* Sets *out to the pointer that the host passed when it published the object. */
GANTRY_API void GANTRY_instance_get_user_private(GANTRY_instance* instance, void** out);

/* Sets *out to the name of the object's interface, which is valid as long as the library. */
GANTRY_API void GANTRY_instance_get_interface(GANTRY_instance* instance, const char** out);

/*
 * Sets *out to the context's object with that interface and path, or to null if there is none. A
 * null path means the oldest object of the interface, a null context the calling thread's.
 */
GANTRY_API void GANTRY_instance_find(GANTRY_cpp_context* context, const char* interface,
                                     const char* path, GANTRY_instance** out);

/*
 * What became of the last creating function (GANTRY_instantiate__*) on the context: sets *out to
 * the object that it published and *error to 0, or *out to null and *error to the errno why it
 * published none, such as EEXIST for a path that has such an object; ENOENT if none was called, or
 * if the object has been freed. A null context means the calling thread's. `error` may be null.
 */
GANTRY_API void GANTRY_instance_get_created(GANTRY_cpp_context* context, GANTRY_instance** out,
                                            int* error);

/*
 * Has `written` called when a client has written one of the object's properties, even with an equal
 * value: after the value is stored, before it is announced, and before the client's reply.
 * `property` is the D-Bus name. A null `written` ends it.
 *
 * GANTRY_call_fail refuses the write: when `written` returns, the former value is put back, nothing
 * is announced, and the client gets the error. In a host in C++ `written` may throw an SdBusError
 * or another internal_exception of sdbusplus instead, to the same effect. Any other exception puts
 * the former value back too, and ends the loop. If `written` sets the property itself and doesn't
 * refuse, that value is announced in place of the client's.
 *
 * Inside `written` any function may be called, those of <gantry/call.h> too, except
 * GANTRY_call_defer. But if it publishes an object or calls GANTRY_context_manage, sd-bus gives the
 * client the error UnknownProperty, although the value is stored and announced.
 */
GANTRY_API void GANTRY_instance_on_write(GANTRY_instance* instance,
                                         void (*written)(GANTRY_instance* instance,
                                                         const char* property, void* data),
                                         void* data);

/*
 * Announces an object that was published after the service started: sends InterfacesAdded with all
 * properties from the object's path, and from each path above it that was given to
 * GANTRY_context_manage. Publishing alone sends nothing. `error` may be null; *error gets 0, EINVAL
 * for a null instance, or the positive errno of a failed send, which is also logged.
 */
GANTRY_API void GANTRY_instance_announce_added(GANTRY_instance* instance, int* error);

/*
 * Destroys one object, its object manager and its record, sends InterfacesRemoved from the same
 * paths as above, and sets *instance to null. Does nothing if *instance is null.
 *
 * It may be called anywhere on the context's thread, also from the object's own callbacks. Inside a
 * bus callback the object disappears from GANTRY_instance_find and as default sender of signals at
 * once, but is destroyed only after the callback returns. Until then the record stays valid and the
 * path cannot be reused for the same interface.
 */
GANTRY_API void GANTRY_instance_free(GANTRY_instance** instance);

GANTRY_END_C

#endif
