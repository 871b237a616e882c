/*
 * The context ties a thread of the host to the bus.
 *
 * A thread has at most one context. It owns the thread's D-Bus connection, every object that is
 * published on it and every signal subscription. Wherever a function takes a context, null means
 * the calling thread's own, which is created at its first use. A context may be used and freed only
 * on the thread that created it: nothing here takes a lock.
 *
 * No function returns a status. On failure a function writes a line to the platform's log. Unless
 * documented otherwise, it also sets its out parameter to null and its `int* error` to a positive
 * errno, if it has these parameters.
 */
#ifndef GANTRY_CONTEXT_H
#define GANTRY_CONTEXT_H

#include <gantry/export.h>

#ifdef __cplusplus
#include <cstddef>
#else
#include <stdbool.h>
#include <stddef.h> /* NULL */
#endif

GANTRY_BEGIN_C

/* Opaque to C; <gantry/context.hpp> has its fields. */
typedef struct GANTRY_cpp_context GANTRY_cpp_context;

/*
 * Whether new contexts use the thread's shared default connection (true, the initial value) or open
 * a private one (false). It is read when a context is created, so set it before the thread's first
 * context; existing contexts keep their connection. GANTRY_set_use_default stores it.
 */
extern GANTRY_API bool GANTRY_use_default;
GANTRY_API void GANTRY_set_use_default(bool use_default);

/*
 * Sets *out to the calling thread's context, which is created if there is none. Sets *out to null
 * if that fails. A second call gives the same pointer: there is no reference count. The library
 * owns the context until GANTRY_context_free or the thread's exit. `out` must not be null.
 */
GANTRY_API void GANTRY_context_new(GANTRY_cpp_context** out);

/*
 * Destroys *context and sets it to null: first its objects, newest first, then its subscriptions,
 * then its reference to the connection. Waits, for a second at most, until the bus has read what is
 * left to send. Does nothing if *context is null. `context` must not be null.
 *
 * A context that isn't freed is destroyed when its thread exits. Returning from main isn't a
 * thread's exit: the process ends, and the connection just closes.
 *
 * Called from a callback inside a loop of <gantry/loop.h>, it also stops the loop, and the context
 * is destroyed when the outermost loop returns. Called from a bus callback under the host's own
 * event loop, it has the context destroyed in the next run of that event loop. Until then the
 * context must not be used, the thread has no context, and none is created for it.
 */
GANTRY_API void GANTRY_context_free(GANTRY_cpp_context** context);

/*
 * Requests the well-known name under which the context's objects are served. The text is kept by
 * pointer, not copied: it must live as long as the context, or until another name is set. With null
 * or an empty text no name is requested. Without this call the first object that is published
 * requests its interface's default name.
 */
GANTRY_API void GANTRY_context_set_service(GANTRY_cpp_context* context, const char* name);

/*
 * Sets *owned to the well-known name under which clients find the context: of the names that it
 * owns, the one that it requested last. Sets *owned to null if the context owns no name: none was
 * requested, the bus refused it, another process owns it now, or the connection was lost. A refusal
 * and a loss are each logged. A loss is noticed only while a loop runs; until then the name counts
 * as owned. The text is valid for as long as the name is owned. `owned` must not be null.
 */
GANTRY_API void GANTRY_context_get_service(GANTRY_cpp_context* context, const char** owned);

/*
 * Adds an object manager at `path`, such as /com/orvane/velmar, where clients find all of the
 * context's objects below that path. Its GetManagedObjects lists them; InterfacesAdded and
 * InterfacesRemoved are sent both from `path` and from the object's own path. The function may be
 * called before and after objects are published. The manager stays until the context is freed. If
 * the path has such a manager already, nothing changes.
 *
 * `error` may be null; *error gets 0, EINVAL for a path that is null or not valid, or the positive
 * errno of a refusal, which is also logged.
 */
GANTRY_API void GANTRY_context_manage(GANTRY_cpp_context* context, const char* path, int* error);

/*
 * Get and set a pointer that the context stores for the host and never dereferences. The getter
 * sets *out to null if there is no context. `out` must not be null.
 */
GANTRY_API void GANTRY_context_get_user_private(GANTRY_cpp_context* context, void** out);
GANTRY_API void GANTRY_context_set_user_private(GANTRY_cpp_context* context, void* user_private);

/*
 * Holds the changes of properties back, to announce many together: until as many calls of
 * GANTRY_context_send_changes have followed, setters of every kind store, and announce nothing.
 * GANTRY_context_send_changes then sends one PropertiesChanged per object that changed, with the
 * values of that time; a property that was set back to its former value is announced as well.
 *
 * The changes of all objects are sent earlier if the host sends another signal, and those of one
 * object if the object sends a reply. The changes of an object that is freed are dropped. Changes
 * that are still held when a callback returns to a loop of <gantry/loop.h>, or when such a loop is
 * entered, are sent then, and the log has a line about it.
 *
 * A null context means the calling thread's. `error` may be null; *error gets 0, EINVAL if no
 * changes are held, or the positive errno of what a getter threw, which is also logged; the other
 * objects' changes are sent all the same.
 */
GANTRY_API void GANTRY_context_hold_changes(GANTRY_cpp_context* context);
GANTRY_API void GANTRY_context_send_changes(GANTRY_cpp_context* context, int* error);

/*
 * Has `lost` called once, with `context` and `data`, when the connection is lost: from any loop of
 * <gantry/loop.h> and from the host's own event loop alike. A later function replaces an earlier
 * one; null removes it. Inside `lost` any function may be called, GANTRY_context_free too. A null
 * context means the calling thread's. `error` may be null; *error gets 0 or the positive errno of a
 * failure, which is also logged.
 */
GANTRY_API void GANTRY_context_on_disconnect(GANTRY_cpp_context* context,
                                             void (*lost)(GANTRY_cpp_context* context, void* data),
                                             void* data, int* error);

/*
 * Resolves a context argument, as all functions do: sets *out to `context` if that isn't null, else
 * to the calling thread's context if its connection is ready, else to null. `out` must not be null.
 */
GANTRY_API void GANTRY_context_management(GANTRY_cpp_context* context, GANTRY_cpp_context** out);

GANTRY_END_C

#endif
