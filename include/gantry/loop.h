/*
 * The dispatch loops. Bus traffic is served, and callbacks run, only inside these functions, on
 * the thread that calls them, which must be the context's own. A null context means the calling
 * thread's. A failure inside a loop is logged and ends it; the context stays as it was, and a loop
 * may be entered again. GANTRY_context_stop ends any of them without a failure.
 */
#ifndef GANTRY_LOOP_H
#define GANTRY_LOOP_H

#include <gantry/context.h>

GANTRY_BEGIN_C

/*
 * Tells the service manager READY=1, then serves the bus until it is stopped or something fails.
 * Each pass runs the health check, serves all that is ready, and sleeps until the bus has more to
 * do. Other sources of the thread's event loop wait meanwhile: a host with timers uses
 * GANTRY_dbus_sdloop. A signal whose handler interrupts the sleep and asks for no stop is a
 * failure.
 */
GANTRY_API void GANTRY_dbus_loop(GANTRY_cpp_context* context);

/*
 * One pass for a host with a loop of its own: the health check, then all that is ready, without
 * waiting. Sends no READY=1. GANTRY_context_get_fd tells when there is more.
 */
GANTRY_API void GANTRY_dbus_loop_one_pass(GANTRY_cpp_context* context);

/*
 * One health check, then the thread's default sd-event loop, with every source on it, until it is
 * stopped or something calls sd_event_exit(3) on that loop. Sends no READY=1.
 */
GANTRY_API void GANTRY_dbus_sdloop(GANTRY_cpp_context* context);

/*
 * Ends the loop that runs on the context, with those that its callbacks have entered, after the
 * work at hand: the callback that runs is finished and its reply is sent, and what else is ready
 * stays for the next loop. If none runs, the next one that is entered ends at once, before it
 * serves anything; for GANTRY_dbus_loop_one_pass that is one pass. A stop is done with when the
 * outermost loop returns, and any number of stops until then are one. The thread's event loop is
 * not finished: a loop may be entered again.
 *
 * Callable on the context's thread: from its callbacks, from those of other sources on the event
 * loop, and from signal handlers. Null means the calling thread's context; without one nothing
 * happens, and none is made. A handler that may come after GANTRY_context_free gives null. The stop
 * itself logs nothing.
 *
 * A signal that comes between a loop's look at the stop and its sleep doesn't interrupt the sleep:
 * that loop ends when something wakes it. The way without that gap is to block the signal, in
 * every thread, and to make it a source of the event loop that GANTRY_dbus_sdloop runs:
 *
 *     #include <signal.h>
 *     #include <systemd/sd-event.h>         (pkg-config --libs libdbusgantry libsystemd)
 *
 *     static int on_term(sd_event_source* source, const struct signalfd_siginfo* info, void* data)
 *     {
 *         GANTRY_context_stop(NULL);
 *         return 0;
 *     }
 *
 *     sigprocmask(SIG_BLOCK, &term, NULL);
 *     sd_event_default(&event);
 *     sd_event_add_signal(event, NULL, SIGTERM, on_term, NULL);
 *     GANTRY_dbus_sdloop(NULL);
 *
 * (GANTRY_dbus_loop sleeps through such a source.) A host with a loop of its own unblocks the
 * signal in ppoll(2) alone.
 */
GANTRY_API void GANTRY_context_stop(GANTRY_cpp_context* context);

/*
 * Sets *out to a descriptor that polls readable (POLLIN) when a GANTRY_dbus_loop_one_pass has
 * something to do: its bus, or another source of the thread's event loop. -1 if there is no
 * context and none can be made. The descriptor is the event loop's: not to be read or closed, and
 * valid as long as the context. `out` must not be null.
 *
 * It shows what has come in since the last pass, and nothing else. So a pass comes first: before
 * the first poll, and before the next one if anything was done outside of a pass (a call or signal
 * sent, a property set, an object published, a source added), as the connection may be left with
 * something to send, or with messages that it has read already. So it is after a pass that was
 * stopped or failed.
 */
GANTRY_API void GANTRY_context_get_fd(GANTRY_cpp_context* context, int* out);

GANTRY_END_C

#endif
