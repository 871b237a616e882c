/*
 * The limit: NicPort objects as a C programmer writes them on raw sd-bus, with properties that
 * sd-bus reads from memory itself, and the loop shape of GANTRY_dbus_loop.
 *
 *     raw_server COUNT       prints "ready" when COUNT objects are served
 */
#define _GNU_SOURCE
#include "nic_port.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define FIELD(name, signature, type) type name;
struct nic_port
{
    NIC_PORT_PROPERTIES(FIELD)
};

#define ROW(name, signature, type)                                                                 \
    SD_BUS_PROPERTY(#name, signature, NULL, offsetof(struct nic_port, name),                       \
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
static const sd_bus_vtable nic_port_vtable[] = {
    SD_BUS_VTABLE_START(0),
    NIC_PORT_PROPERTIES(ROW) SD_BUS_VTABLE_END,
};

static void check(int result, const char* call)
{
    if (result < 0)
    {
        fprintf(stderr, "%s: %s\n", call, strerror(-result));
        exit(1);
    }
}

static void add_object(sd_bus* bus, long number)
{
    char path[64];
    snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
    check(sd_bus_add_object_manager(bus, NULL, path), "sd_bus_add_object_manager");
    struct nic_port* port = calloc(1, sizeof *port);
    if (port == NULL)
    {
        abort();
    }
    port->FQDD = strdup("NIC.Integrated.1-1-1");
    port->FamilyDriverVersion = strdup("22.31.6");
    port->FriendlyFQDD = strdup("Integrated NIC 1 Port 1 Partition 1");
    port->LinkSpeed = 255;
    port->dohObjStatus = 1;
    check(sd_bus_add_object_vtable(bus, NULL, path, "com.orvane.velmar.system.NicPort",
                                   nic_port_vtable, port),
          "sd_bus_add_object_vtable");
}

int main(int argc, char** argv)
{
    const long count = argc > 1 ? atol(argv[1]) : 1;
    sd_bus* bus = NULL;
    sd_event* event = NULL;
    check(sd_bus_default_system(&bus), "sd_bus_default_system");
    check(sd_event_default(&event), "sd_event_default");
    check(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    check(sd_bus_request_name(bus, "com.orvane.velmar.bench.raw",
                              SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
          "sd_bus_request_name");
    for (long number = 0; number < count; ++number)
    {
        add_object(bus, number);
    }
    puts("ready");
    fflush(stdout);
    for (;;)
    {
        int result = 0;
        while ((result = sd_event_run(event, 1)) > 0)
        {
        }
        check(result, "sd_event_run");
        check(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
    }
}
