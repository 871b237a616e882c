/*
 * inventoryd publishes the machine that it runs on: its PCI and USB devices, adapters, firmware and
 * boot configuration. It finds what there is by scans (inventory.h): at start, at SIGHUP, and when
 * the kernel or udev tells of a change. What is told within a fifth of a second is one change: one
 * scan, and one HardwareInventoryChanged and one Refresh if it finds something. The state of a
 * network link follows the kernel's message at once, and counters follow a timer.
 *
 * It publishes a record of a machine instead if it is given one, and then watches nothing. Or it
 * writes such a record (sysfs.h), for which it needs no bus.
 *
 * Facts come from sysfs (sysfs.h), from the kernel's answers over netlink (netlink.h), and names
 * from the hardware database (hwdb.c).
 */
#define _GNU_SOURCE /* getopt_long, and siginfo_t for sd-event */

#include "card.h"
#include "devices.h"
#include "inventory.h"
#include "nic.h"

#include <gantry/gantry.h>
#include <gantry/version.h>

#include <errno.h>
#include <getopt.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>
#include <time.h>

static const uint64_t second = 1000000; /* the event loop's times are in microseconds */
static const uint64_t burst = 200000;

static uint64_t counters_interval = 5;
static sd_event_source* burst_timer;
static bool stopped;

/* False if the bus refused the name or another process has taken it, which the library logs. */
static bool has_name(void)
{
    const char* name = NULL;
    GANTRY_context_get_service(NULL, &name);
    return name != NULL;
}

/* The event loop calls these. */

static int on_burst(sd_event_source* timer, uint64_t now, void* data)
{
    (void)timer, (void)now, (void)data;
    (void)objects_have_changed(); /* a link's state isn't part of the inventory */
    scan_all();
    if (objects_have_changed())
    {
        readiness_signal_change();
    }
    return 0;
}

/* Has a scan made, unless one is due already. */
static void on_change(void)
{
    int enabled = SD_EVENT_OFF;
    sd_event_source_get_enabled(burst_timer, &enabled);
    if (enabled == SD_EVENT_OFF)
    {
        sd_event_source_set_time_relative(burst_timer, burst);
        sd_event_source_set_enabled(burst_timer, SD_EVENT_ONESHOT);
    }
}

static int on_counters(sd_event_source* timer, uint64_t now, void* data)
{
    (void)now, (void)data;
    if (!has_name())
    {
        GANTRY_context_stop(NULL);
    }
    objects_refresh();
    sd_event_source_set_time_relative(timer, counters_interval * second);
    return sd_event_source_set_enabled(timer, SD_EVENT_ONESHOT);
}

static int on_stop(sd_event_source* source, const struct signalfd_siginfo* signal, void* data)
{
    (void)source, (void)signal, (void)data;
    stopped = true;
    sd_notify(0, "STOPPING=1");
    GANTRY_context_stop(NULL);
    return 0;
}

static int on_reload(sd_event_source* source, const struct signalfd_siginfo* signal, void* data)
{
    (void)source, (void)signal, (void)data;
    devices_note(NULL);
    return 0;
}

static void warn(const char* what, int result)
{
    if (result < 0)
    {
        fprintf(stderr, SD_WARNING "%s: %s\n", what, strerror(-result));
    }
}

/* Adds the sources other than the bus. A source without a holder lives as long as the loop. */
static int add_sources(sd_event* event)
{
    static const struct
    {
        int signal;
        sd_event_signal_handler_t handler;
    } signals[] = {{SIGTERM, on_stop}, {SIGINT, on_stop}, {SIGHUP, on_reload}};
    int result = 0;
    for (size_t i = 0; i < sizeof signals / sizeof *signals && result >= 0; ++i)
    {
        result = sd_event_add_signal(event, NULL, signals[i].signal | SD_EVENT_SIGNAL_PROCMASK,
                                     signals[i].handler, NULL);
    }
    if (result < 0 ||
        (result = sd_event_add_time_relative(event, &burst_timer, CLOCK_MONOTONIC, burst, 0,
                                             on_burst, NULL)) < 0 ||
        (result = sd_event_source_set_enabled(burst_timer, SD_EVENT_OFF)) < 0 ||
        (result = sd_event_add_time_relative(event, NULL, CLOCK_MONOTONIC,
                                             counters_interval * second, 0, on_counters, NULL)) < 0)
    {
        return result;
    }
    devices_on_change(on_change);
    if (!sysfs_is_recorded())
    {
        /* Without these, what is present at start is still published. */
        warn("devices that come later", devices_watch(event));
        warn("network interfaces that come later", nic_watch(event));
        warn("boot entries that change later", boot_watch(event));
    }
    return 0;
}

static int serve(void)
{
    GANTRY_cpp_context* context = NULL;
    sd_event* event = NULL;
    const char* dumps = getenv("STATE_DIRECTORY");
    GANTRY_context_new(&context);
    if (context == NULL)
    {
        fprintf(stderr, SD_ERR "no connection to the system bus\n");
        return EXIT_FAILURE;
    }
    /* The loop that GANTRY_dbus_sdloop runs. */
    int result = sd_event_default(&event);
    if (result < 0 || (result = add_sources(event)) < 0)
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
    dump_open(event, dumps != NULL ? dumps : getenv("RUNTIME_DIRECTORY"));
    readiness_publish();
    scan_all();
    objects_declare_complete();
    readiness_declare();

    sd_notify(0, "READY=1");
    /* With WatchdogSec= in the unit, the running loop sends keep-alives from now on. */
    sd_event_set_watchdog(event, 1);
    GANTRY_dbus_sdloop(context);

    GANTRY_context_free(&context);
    dump_free();
    sd_event_source_unref(burst_timer);
    sd_event_unref(event);
    return stopped ? EXIT_SUCCESS : EXIT_FAILURE; /* the log says why the loop ended */
}

static void print_usage(FILE* out, const char* program)
{
    fprintf(out,
            "usage: %s [OPTION]...\n"
            "  --counters SECONDS   read counters so often, 5 by default\n"
            "  --publish-serials    publish serial numbers, and what else only root may read\n"
            "  --record DIR         write a record of this machine to DIR, and end\n"
            "  --root DIR           publish the record in DIR instead of this machine\n"
            "  --help, --version\n",
            program);
}

/* Returns the program's exit status. */
static int write_record(const char* directory)
{
    const int error = record_start(directory);
    if (error != 0)
    {
        fprintf(stderr, SD_ERR "%s: %s\n", directory, strerror(error));
        return EXIT_FAILURE;
    }
    object_is_unpublished = true;
    scan_all();
    return record_is_whole() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv)
{
    static const struct option options[] = {
        {"counters", required_argument, NULL, 'c'},
        {"publish-serials", no_argument, NULL, 's'},
        {"record", required_argument, NULL, 'w'},
        {"root", required_argument, NULL, 'r'},
        {"help", no_argument, NULL, 'h'},
        {"version", no_argument, NULL, 'v'},
        {NULL, 0, NULL, 0},
    };
    const uint64_t longest_interval = 86400;
    const int misused = 2;
    const char* record = NULL;
    const char* root = NULL;
    char* end = NULL;
    for (int option = 0; (option = getopt_long(argc, argv, "", options, NULL)) != -1;)
    {
        switch (option)
        {
        case 'c':
            counters_interval = strtoul(optarg, &end, 10);
            if (*end != '\0' || counters_interval == 0 || counters_interval > longest_interval)
            {
                fprintf(stderr, "%s: --counters takes 1 to %" PRIu64 " seconds\n", argv[0],
                        longest_interval);
                return misused;
            }
            break;
        case 's':
            sysfs_serials = true;
            break;
        case 'w':
            record = optarg;
            break;
        case 'r':
            root = optarg;
            break;
        case 'h':
            print_usage(stdout, argv[0]);
            return EXIT_SUCCESS;
        case 'v':
            fprintf(stdout, "libdbusgantry %s\n", GANTRY_version());
            return EXIT_SUCCESS;
        default:
            print_usage(stderr, argv[0]);
            return misused;
        }
    }
    if (optind < argc)
    {
        print_usage(stderr, argv[0]);
        return misused;
    }
    nic_every_interface = getenv("INVENTORYD_EVERY_INTERFACE") != NULL;
    /* The devices' directories are free of links, and so must this be. */
    sysfs_root = root != NULL ? realpath(root, NULL) : sysfs_root;
    if (root != NULL && (sysfs_root == NULL || !sysfs_has_directory(sysfs_root, ".")))
    {
        fprintf(stderr, SD_ERR "%s: %s\n", root, strerror(sysfs_root == NULL ? errno : ENOTDIR));
        return EXIT_FAILURE;
    }
    return record != NULL ? write_record(record) : serve();
}
