/*
 * The call that a method's callback serves. The host can refuse it, learn who calls, or answer it
 * later. If the host neither refuses nor defers it, the reply is sent when the callback returns.
 *
 * The callback passes the instance that it got. Outside of a callback of that object the functions
 * that take an instance set *error to EINVAL and log it. The function that a host passes to
 * GANTRY_instance_on_write may call them too, except GANTRY_call_defer. `error` may be null; then a
 * failure is logged. Call all functions on the context's thread.
 */
#ifndef GANTRY_CALL_H
#define GANTRY_CALL_H

#include <gantry/instance.h>

#include <sys/types.h>

GANTRY_BEGIN_C

/*
 * A call that is answered later. The pointer identifies the call and points to nothing. Once the
 * call is closed it identifies no call: using it is an error, and answers no other call.
 */
typedef struct GANTRY_call GANTRY_call;

/*
 * Refuses the call: when the callback returns, the client gets the D-Bus error `name` instead of
 * the reply, and what the callback stored in its outputs is released. `text` is for people; it is
 * repaired to UTF-8, and null means empty. If the callback refuses the call twice, the second
 * refusal counts. *error gets 0; EINVAL for a name that D-Bus doesn't allow, or if the call was
 * deferred; or ENOMEM.
 */
GANTRY_API void GANTRY_call_fail(GANTRY_instance* instance, const char* name, const char* text,
                                 int* error);

/* Sets *out to the client's unique name on the bus. The text is valid until the callback returns.
 * Sets *out to null if the call has no sender or no callback is running. `out` must not be null. */
GANTRY_API void GANTRY_call_get_sender(GANTRY_instance* instance, const char** out);

/*
 * Asks the bus for the client's effective user and process, and waits for the answer. The bus is
 * asked on a second connection, which the first use opens and the context keeps: so no file
 * descriptor that a client sends is accepted while the call waits. `uid` and `pid` may be null; on
 * an error neither is changed. *error gets 0, EINVAL, or the errno with which the bus refuses, for
 * example because the client has left.
 */
GANTRY_API void GANTRY_call_get_credentials(GANTRY_instance* instance, uid_t* uid, pid_t* pid,
                                            int* error);

/*
 * Defers the answer: the callback returns without a reply, its outputs are released, and the loop
 * serves other clients. The host later answers *call once: in another callback, in that of a timer,
 * or between passes. It answers with the function GANTRY_reply__<interface>__<Method> of the call's
 * own method, or with GANTRY_call_refuse. Both set the pointer to null. The host need not know
 * whether the client is still on the bus or wants a reply.
 *
 * If the object or the context of an open call is destroyed, the client gets the error
 * org.freedesktop.DBus.Error.NoReply; of several open calls the newest is answered first. A call
 * whose client leaves the bus is closed without an answer: a loop notices that within seconds, but
 * GANTRY_dbus_loop only when the next message arrives; see GANTRY_call_on_cancel.
 *
 * *error gets 0; EINVAL if the call is deferred already; ENOMEM; or ENOBUFS if 1,024 calls of the
 * context, or 128 of this client, are open: then the client gets
 * org.freedesktop.DBus.Error.LimitsExceeded. On an error *call is null. `call` must not be null.
 */
GANTRY_API void GANTRY_call_defer(GANTRY_instance* instance, GANTRY_call** call, int* error);

/*
 * Answers a deferred call with an error, and sets *call to null. `name` and `text` are those of
 * GANTRY_call_fail. *error gets 0; EINVAL for a name that D-Bus doesn't allow, and the call stays
 * open; EINVAL if *call isn't an open call; or the errno of a failed send.
 */
GANTRY_API void GANTRY_call_refuse(GANTRY_call** call, const char* name, const char* text,
                                   int* error);

/*
 * Has `cancelled` called once, with `data`, if the client of the deferred call leaves the bus
 * before the call is answered. The call is closed by then; `call` only serves for comparison. If a
 * client has several calls, they are cancelled one after the other, newest first. The function runs
 * in a loop and may call any function. It is not called for a call that is answered, or that is
 * closed with its object or context. A later function replaces an earlier one; null removes it.
 *
 * *error gets 0; EINVAL if the call isn't open; or the errno of a failed request to the bus, and
 * then nothing changes.
 */
GANTRY_API void GANTRY_call_on_cancel(GANTRY_call* call,
                                      void (*cancelled)(GANTRY_call* call, void* data), void* data,
                                      int* error);

GANTRY_END_C

#endif
