/*
 * An example host that publishes the machine it runs on: its PCI and USB devices, network ports,
 * firmware and boot configuration. Once a second it reads the network ports again, and it adds and
 * removes them as they appear and disappear. It ends if it doesn't get its name, or loses it.
 *
 *     inventoryd [SYS]
 *
 * SYS is where sysfs is mounted, /sys if left out, or a recorded tree (sysfs.h).
 *
 * Facts come from sysfs (sysfs.h), from the kernel's netlink messages about network interfaces
 * (rtnetlink.h), from drivers (ethtool.h), and names from the hardware database (hwdb.h).
 *
 * Dumps of network adapters are written to the directory that the service manager has made for this
 * host. If $INVENTORYD_EVERY_INTERFACE is set, interfaces without a device are ports, too.
 */
#define _POSIX_C_SOURCE 200809L /* CLOCK_MONOTONIC, and siginfo_t for sd-event */

#include "ethtool.h"
#include "hwdb.h"
#include "inventory.h"
#include "links.h"
#include "network.h"
#include "options.h"
#include "slots.h"

#include <gantry/gantry.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>
#include <time.h>

static const uint64_t refresh_interval = 1000000; /* in microseconds */
static bool stopped;

/* False if the bus refused the name or another process has taken it, which the library logs. */
static bool has_name(void)
{
    const char* name = NULL;
    GANTRY_context_get_service(NULL, &name);
    return name != NULL;
}

/* The event loop calls these. */

static int on_refresh(sd_event_source* timer, uint64_t time, void* network)
{
    (void)time;
    if (!has_name())
    {
        GANTRY_context_stop(NULL);
    }
    network_refresh(network);
    return sd_event_source_set_time_relative(timer, refresh_interval);
}

static int on_stop(sd_event_source* source, const struct signalfd_siginfo* signal, void* context)
{
    (void)source, (void)signal;
    stopped = true;
    sd_notify(0, "STOPPING=1");
    GANTRY_context_stop(context);
    return 0;
}

/* Adds the sources other than the bus. A source without a holder lives as long as the loop. */
static int add_sources(sd_event* event, GANTRY_cpp_context* context, struct network* network)
{
    static const int stops[] = {SIGTERM, SIGINT};
    sd_event_source* timer = NULL;
    int result = 0;
    for (size_t i = 0; i < sizeof stops / sizeof *stops && result >= 0; ++i)
    {
        result =
            sd_event_add_signal(event, NULL, stops[i] | SD_EVENT_SIGNAL_PROCMASK, on_stop, context);
    }
    if (result < 0 ||
        (result = sd_event_add_time_relative(event, &timer, CLOCK_MONOTONIC, refresh_interval, 0,
                                             on_refresh, network)) < 0)
    {
        return result;
    }
    sd_event_source_set_enabled(timer, SD_EVENT_ON);
    sd_event_source_set_floating(timer, 1);
    sd_event_source_unref(timer);

    /* Without netlink, the interfaces present at start are still published. */
    if ((result = links_watch(event, network)) < 0)
    {
        fprintf(stderr, SD_WARNING "network interfaces that come later: %s\n", strerror(-result));
    }
    return 0;
}

int main(int argc, char** argv)
{
    read_options(argc, argv, " [SYS]", 1);
    const char* dumps = getenv("STATE_DIRECTORY");
    dumps = dumps != NULL ? dumps : getenv("RUNTIME_DIRECTORY");
    const char* sys = argc > 1 ? argv[1] : "/sys";
    GANTRY_cpp_context* context = NULL;
    struct network network;
    sd_event* event = NULL;

    GANTRY_context_new(&context);
    if (context == NULL)
    {
        fprintf(stderr, SD_ERR "no connection to the system bus\n");
        return EXIT_FAILURE;
    }
    /* The loop that GANTRY_dbus_sdloop runs. */
    int result = sd_event_default(&event);
    if (result < 0 || (result = add_sources(event, context, &network)) < 0)
    {
        fprintf(stderr, SD_ERR "event loop: %s\n", strerror(-result));
        return EXIT_FAILURE;
    }

    /* Before the first object, which would otherwise request its interface's default name. */
    GANTRY_context_set_service(context, "com.orvane.velmar.inventory");
    if (!has_name())
    {
        return EXIT_FAILURE;
    }
    GANTRY_context_manage(context, "/com/orvane/velmar", NULL);
    ethtool_open(sys);
    publish_readiness(context);
    publish_firmware(context, sys);
    publish_software(context, sys);
    publish_fru(context, sys);
    publish_boot(context, sys);
    publish_pci_devices(context, sys);
    publish_slots(context, event, sys, dumps);
    publish_usb_devices(context, sys);
    hwdb_close();
    network_publish(&network, context, sys, getenv("INVENTORYD_EVERY_INTERFACE") != NULL);
    declare_readiness(context);

    sd_notify(0, "READY=1");
    /* With WatchdogSec= in the unit, the running loop sends keep-alives from now on. */
    sd_event_set_watchdog(event, 1);
    GANTRY_dbus_sdloop(context);

    GANTRY_context_free(&context);
    slots_free();
    network_free(&network);
    sd_event_unref(event);
    return stopped ? EXIT_SUCCESS : EXIT_FAILURE; /* the log says why the loop ended */
}
