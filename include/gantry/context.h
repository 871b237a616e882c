/*
 * The context: what ties a thread of the host to the bus.
 *
 * A thread has at most one context. It owns the thread's D-Bus connection, every object that is
 * published on it and every signal subscription. Wherever a function takes a context, null means
 * the calling thread's own, which is made at its first use. All work on a context, its freeing
 * included, belongs on the thread that made it: nothing here takes a lock.
 *
 * No function reports failure by a return value. A failure is a line in the platform's log, null in
 * an out parameter where there is one, and a positive errno in `int* error` where there is one.
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
 * Whether contexts made from now on use the thread's shared default connection (true, the initial
 * value) or open a private one (false). Read when a context is made, so set it before the thread's
 * first context; existing contexts keep what they have. GANTRY_set_use_default stores it.
 */
extern GANTRY_API bool GANTRY_use_default;
GANTRY_API void GANTRY_set_use_default(bool use_default);

/*
 * Sets *out to the calling thread's context, made now if there is none; null when it can't be
 * made. A second call gives the same pointer: there is no reference count. The context belongs to
 * the library until GANTRY_context_free or the thread's exit. `out` must not be null.
 */
GANTRY_API void GANTRY_context_new(GANTRY_cpp_context** out);

/*
 * Destroys *context and sets *context to null: its objects, newest first, then its subscriptions,
 * then its hold on the connection. *context may be null, then nothing is destroyed. `context` must
 * not be null.
 *
 * Without this call the context goes when its thread exits. When main returns no thread exits: then
 * the connection just closes.
 *
 * Inside of a loop of <gantry/loop.h>, which is in any callback that it calls, this also stops the
 * loop, and the context is destroyed when the (outermost) loop returns. Inside of a bus callback
 * that the host's own event loop calls, it is destroyed in the next run of that event loop. Until
 * then the thread has no context, and none is made for it; the freed one is not to be used.
 */
GANTRY_API void GANTRY_context_free(GANTRY_cpp_context** context);

/*
 * Requests the well-known name under which the context's objects are served. The text is kept by
 * pointer, not copied: it must live as long as the context. Null, or an empty text, says that no
 * name is wanted. Without this call the first object that is published requests its interface's
 * default name.
 */
GANTRY_API void GANTRY_context_set_service(GANTRY_cpp_context* context, const char* name);

/*
 * A pointer of the host's, kept for it and never looked at. The getter sets *out to null before
 * anything else, and to the kept pointer if there is a context. `out` must not be null.
 */
GANTRY_API void GANTRY_context_get_user_private(GANTRY_cpp_context* context, void** out);
GANTRY_API void GANTRY_context_set_user_private(GANTRY_cpp_context* context, void* user_private);

/*
 * The resolver behind every null context: *out becomes `context` itself if that isn't null, else
 * the calling thread's context if its connection is ready, else null. `out` must not be null.
 */
GANTRY_API void GANTRY_context_management(GANTRY_cpp_context* context, GANTRY_cpp_context** out);

GANTRY_END_C

#endif
