/*
 * An instance identifies a published object to its host; it is the first argument of each method's
 * callback. The record belongs to the object and lives as long as the object: until
 * GANTRY_instance_free or the end of its context. Call all functions on the context's thread. With
 * a null instance or a null `out` they do nothing and leave *out unchanged.
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

/* Releases a copy that GANTRY_instance_get_path made, and sets *path to null. Does nothing if
 * `path` or *path is null. */
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
 * Reports what the last creating function (GANTRY_instantiate__*) of the context did. If it
 * published an object, sets *out to that object and *error to 0. Otherwise sets *out to null and
 * *error to the reason, such as EEXIST for a path that has an object of the interface already.
 * *error gets ENOENT if no creating function was called, or if the object has been freed since. A
 * null context means the calling thread's. `error` may be null.
 */
GANTRY_API void GANTRY_instance_get_created(GANTRY_cpp_context* context, GANTRY_instance** out,
                                            int* error);

/*
 * Has `written` called when a client has written one of the object's properties, even with an equal
 * value: after the value is stored, before it is announced, and before the client's reply.
 * `property` is the D-Bus name. A later function replaces an earlier one; null removes it.
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
 * Has `read` called before a client reads the object, so that the host works its values out then
 * and sets them with `skip_signal`: once for each message that is a Get or a GetAll of the object's
 * interface at its path, or a GetManagedObjects of a path above it, whether or not that succeeds.
 * Signals, which send values as well, don't call it. A later function replaces an earlier one; null
 * removes it. If memory runs out, this is logged and changes nothing.
 *
 * Inside `read` any function may be called; those of <gantry/call.h> find no call of the object. In
 * a host in C++ `read` may throw an SdBusError or another internal_exception of sdbusplus: the
 * client gets it as its error. Any other exception gives the client an error, too, and ends the
 * loop. After an exception, or if `read` frees the context, no other object's function is called
 * for this message.
 */
GANTRY_API void GANTRY_instance_on_read(GANTRY_instance* instance,
                                        void (*read)(GANTRY_instance* instance, void* data),
                                        void* data);

/*
 * Announces an object that was published after the service started: sends InterfacesAdded with all
 * properties from the object's path, and from each path above it that was given to
 * GANTRY_context_manage. Publishing alone sends no signal. `error` may be null; *error gets 0,
 * EINVAL for a null instance, or the positive errno of a failed send, which is also logged.
 *
 * While the bus doesn't read, InterfacesAdded and InterfacesRemoved wait, and are sent once it
 * does: for each path, one signal with all interfaces that were removed, and then those of the
 * objects that were added since, with the values of that time. An object that was published and
 * freed meanwhile is announced only if a client has called GetManagedObjects in between.
 */
GANTRY_API void GANTRY_instance_announce_added(GANTRY_instance* instance, int* error);

/*
 * Destroys one object, its object manager and its record, and sets *instance to null. Sends
 * InterfacesRemoved from the paths that GANTRY_instance_announce_added names. Does nothing if
 * *instance is null.
 *
 * It may be called anywhere on the context's thread, also from the object's own callbacks. Inside a
 * bus callback GANTRY_instance_find stops finding the object at once, and it is no default sender
 * of signals any more, but it is destroyed only after the callback returns. Until then the record
 * stays valid and the path can't be reused for the same interface.
 */
GANTRY_API void GANTRY_instance_free(GANTRY_instance** instance);

GANTRY_END_C

#endif
