/*
 * An example host: publishes the machine that it runs on. PCI and USB devices, network interfaces,
 * firmware and what it boots are read from sysfs; link state and counters once a second from then
 * on.
 *
 *     inventoryd [SYSFS]        SYSFS is where sysfs is mounted, /sys if left out
 */
#include "boot.hpp"
#include "connection.hpp"
#include "firmware.hpp"
#include "network.hpp"
#include "partition.hpp"
#include "pci.hpp"
#include "readiness.hpp"
#include "software.hpp"
#include "usb.hpp"

#include <gantry/gantry.h>

#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <system_error>

namespace
{

constexpr auto service_name = "com.orvane.velmar.inventory";
constexpr std::uint64_t refresh_interval = 1'000'000;

void check(int result, const char* call)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

/** What changes while the host runs. */
struct Network
{
    NetworkPorts ports;
    NetworkPartitions partitions;
    NetworkConnections connections;

    void refresh()
    {
        ports.refresh();
        partitions.refresh();
        connections.refresh();
    }
};

/** Runs on the event loop. libsystemd calls it, so nothing may be thrown out of it. */
int on_refresh(sd_event_source* timer, std::uint64_t /*usec*/, void* user_data) noexcept
{
    try
    {
        static_cast<Network*>(user_data)->refresh();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, SD_ERR "refresh: %s\n", error.what());
    }
    return sd_event_source_set_time_relative(timer, refresh_interval);
}

void serve(const char* sys)
{
    // Before the first object, or its interface's default name would be taken.
    GANTRY_context_set_service(nullptr, service_name);
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    if (context == nullptr)
    {
        throw std::runtime_error("no connection to the system bus");
    }

    Readiness readiness{*context};
    publish_firmware(*context, sys);
    publish_software(*context, sys);
    publish_boot(*context, sys);
    publish_pci_devices(*context, sys);
    publish_usb_devices(*context, sys);
    Network network{{*context, sys}, {*context, sys}, {*context, sys}};
    readiness.declare();

    sd_event* event = context->event.get();
    sd_event_source* timer = nullptr;
    check(sd_event_add_time_relative(event, &timer, CLOCK_MONOTONIC, refresh_interval, 0,
                                     on_refresh, &network),
          "sd_event_add_time_relative");
    check(sd_event_source_set_enabled(timer, SD_EVENT_ON), "sd_event_source_set_enabled");

    // A null handler means: end the event loop. The signal must be blocked for that.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    check(sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr), "sd_event_add_signal");
    check(sd_event_add_signal(event, nullptr, SIGINT, nullptr, nullptr), "sd_event_add_signal");

    check(sd_event_set_watchdog(event, 1), "sd_event_set_watchdog");

    sd_notify(0, "READY=1");
    GANTRY_dbus_sdloop(context);

    sd_notify(0, "STOPPING=1");
    sd_event_source_unref(timer);
    GANTRY_context_free(&context);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        serve(argc > 1 ? argv[1] : "/sys");
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, SD_ERR "%s\n", error.what());
        return 1;
    }
}
