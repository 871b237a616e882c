/*
 * Subscriptions to signals. The function GANTRY_subscribe__<interface>__<Signal> of the interface's
 * gantry_server.h subscribes to one signal; this header has its types, and the functions for a
 * subscription. Call all functions on the context's thread.
 */
#ifndef GANTRY_SIGNAL_H
#define GANTRY_SIGNAL_H

#include <gantry/context.h>

GANTRY_BEGIN_C

/*
 * A subscription. The pointer identifies it and points to nothing. Once the subscription has ended,
 * by GANTRY_unsubscribe or with its context, the pointer identifies none, and using it does no
 * harm.
 */
typedef struct GANTRY_subscription GANTRY_subscription;

/*
 * Which signals are received: those that meet all of these conditions. A record of zeros, like a
 * null pointer to a record, means the signals of the interface from every sender. The record and
 * its texts are only read during the call.
 */
typedef struct GANTRY_match
{
    /* A unique name, or a well-known one, which stands for its owner at the time of the signal.
     * Null: any sender. Every client of the bus can send a signal of any object and interface. */
    const char* sender;
    /* The object's path; null: any object. */
    const char* path;
    /* The object's path or one above it; null: any object. Must be null if `path` isn't. */
    const char* path_namespace;
    /* Whether the interface may be any, as long as the signal has the name and the values. */
    bool any_interface;
} GANTRY_match;

/*
 * Set *out to the unique name of the sender, or to the path of the object, of the signal that the
 * subscription's callback is running for. The text is valid until the callback returns. Outside of
 * the callback, and inside it after GANTRY_unsubscribe, *out is null. `out` must not be null.
 */
GANTRY_API void GANTRY_signal_get_sender(GANTRY_subscription* subscription, const char** out);
GANTRY_API void GANTRY_signal_get_path(GANTRY_subscription* subscription, const char** out);

/*
 * Ends the subscription and sets *subscription to null. Its callback isn't called again, not even
 * for a signal that has arrived already. The function may be called inside any callback, the
 * subscription's own included, and after the loss of the connection. If *subscription identifies
 * none, the function only sets it to null; if `subscription` is null, it does nothing.
 */
GANTRY_API void GANTRY_unsubscribe(GANTRY_subscription** subscription);

GANTRY_END_C

#endif
