/*
 * The dispatch loops. Bus traffic is served, and callbacks run, only inside these functions, on
 * the thread that calls them, which must be the context's own. A null context means the calling
 * thread's. A failure inside a loop is logged and ends the loop; the context is unchanged and a
 * loop may be entered again. GANTRY_context_stop ends a loop without a failure.
 *
 * If the connection was lost, or couldn't be attached to the event loop, a loop logs one exception
 * line and returns, and so does each loop that is entered afterwards. The host then frees the
 * context, makes a new one and publishes its objects again, or exits with failure and is restarted.
 *
 * A loop on another thread than the context's fails, since sd-event runs an event loop only on its
 * own thread; the health check logs it. After fork(2) only the parent may use the context: in the
 * child every call of sd-bus fails with ECHILD, and the child must not run a loop or free the
 * context. While a context is destroyed, the thread's cancellation is disabled. A thread that ends
 * inside a callback closes its connection. The library stays loaded after dlclose(3), since the
 * event loop may still call it.
 */
#ifndef GANTRY_LOOP_H
#define GANTRY_LOOP_H

#include <gantry/context.h>

GANTRY_BEGIN_C

/*
 * Sends READY=1 to the service manager, then serves the bus until it is stopped or fails. Each pass
 * runs the health check, serves everything that is ready, and sleeps until the bus has more to do.
 * Other sources of the thread's event loop don't end the sleep: a host with timers uses
 * GANTRY_dbus_sdloop. A signal handler that interrupts the sleep without requesting a stop causes a
 * failure.
 */
GANTRY_API void GANTRY_dbus_loop(GANTRY_cpp_context* context);

/*
 * Makes one pass, for a host with its own loop: runs the health check and serves everything that is
 * ready, without waiting. Sends no READY=1. GANTRY_context_get_fd shows when the next pass is due.
 */
GANTRY_API void GANTRY_dbus_loop_one_pass(GANTRY_cpp_context* context);

/*
 * Runs the health check once, then the thread's default sd-event loop with every source on it,
 * until it is stopped or something calls sd_event_exit(3) on that loop. It is the loop for a host
 * with timers, and for one that the service manager watches (WatchdogSec=,
 * sd_event_set_watchdog(3)). Sends no READY=1: the host calls sd_notify(3) itself. A loop that ends
 * without a failure logs "sdloop exiting, rc=" and sd-event's exit code, which is 0 after a stop.
 */
GANTRY_API void GANTRY_dbus_sdloop(GANTRY_cpp_context* context);

/*
 * Ends the loop that runs on the context, and the loops that its callbacks have entered. The
 * current callback finishes and its reply is sent; everything else that is ready waits for the next
 * loop. If no loop runs, the next one returns before it serves anything; here
 * GANTRY_dbus_loop_one_pass is a loop too. Stops aren't counted: when the outermost loop returns,
 * no stop is left. The thread's event loop doesn't become finished, so a loop may be entered again.
 *
 * It may be called on the context's thread: from its callbacks, from those of other sources on the
 * event loop, and from signal handlers. Null means the calling thread's context; if there is none,
 * nothing happens and none is created. A handler that may run after GANTRY_context_free must pass
 * null. This function logs nothing.
 *
 * A signal that arrives after a loop's last check for a stop and before its sleep doesn't interrupt
 * the sleep: that loop ends when something else wakes it. To close this gap, block the signal in
 * every thread and make it a source of the event loop that GANTRY_dbus_sdloop runs:
 *
 *     #include <signal.h>
 *     #include <systemd/sd-event.h> // pkg-config --libs libdbusgantry libsystemd
 *
 *     static int on_term(sd_event_source* source, const struct signalfd_siginfo* info,
 *                        void* data)
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
 * Such a source doesn't wake GANTRY_dbus_loop. A host with its own loop unblocks the signal only
 * while it sleeps in ppoll(2).
 */
GANTRY_API void GANTRY_context_stop(GANTRY_cpp_context* context);

/*
 * Sets *out to a descriptor that polls readable (POLLIN) when GANTRY_dbus_loop_one_pass has
 * something to do on the bus or on another source of the thread's event loop. Sets *out to -1 if
 * there is no context and none can be created. The event loop owns the descriptor: don't read or
 * close it. It is valid as long as the context. `out` must not be null.
 *
 * The descriptor shows only what has arrived since the last pass. Therefore make a pass before the
 * first poll, after a pass that was stopped or failed, and after anything done outside of a pass (a
 * call or signal sent, a property set, an object published, a source added): the connection may
 * have something left to send, or messages that it has already read.
 */
GANTRY_API void GANTRY_context_get_fd(GANTRY_cpp_context* context, int* out);

GANTRY_END_C

#endif
