/*
 * The dispatch loops. Bus traffic is served, and callbacks run, only inside these functions, on
 * the thread that calls them, which must be the context's own. A null context means the calling
 * thread's. A failure inside a loop is logged and ends it; the context stays as it was, and a loop
 * may be entered again.
 */
#ifndef GANTRY_LOOP_H
#define GANTRY_LOOP_H

#include <gantry/context.h>

GANTRY_BEGIN_C

/*
 * Tells the service manager READY=1, then serves the bus until something fails. Each pass runs the
 * health check, serves all that is ready, and sleeps until the bus has more to do. Other sources
 * of the thread's event loop wait meanwhile: a host with timers uses GANTRY_dbus_sdloop.
 */
GANTRY_API void GANTRY_dbus_loop(GANTRY_cpp_context* context);

/*
 * One pass for a host with a loop of its own: the health check, then all that is ready, without
 * waiting. Sends no READY=1.
 */
GANTRY_API void GANTRY_dbus_loop_one_pass(GANTRY_cpp_context* context);

/*
 * One health check, then the thread's default sd-event loop, with every source on it, until
 * something calls sd_event_exit(3) on that loop. Sends no READY=1.
 */
GANTRY_API void GANTRY_dbus_sdloop(GANTRY_cpp_context* context);

GANTRY_END_C

#endif
