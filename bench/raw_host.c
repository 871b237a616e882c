/*
 * The reference: what gantry_host serves, as a C programmer writes it on raw sd-bus. sd-bus reads
 * the properties from memory itself, and sd_event_loop dispatches.
 *
 *     raw_host SERVICE COUNT    prints "ready" when COUNT NicPort objects are served
 */
#define _GNU_SOURCE
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The properties come from the table: one PROPERTY(name, signature) per property. */
typedef const char* type_s;
typedef uint8_t type_y;
typedef uint16_t type_q;
typedef uint32_t type_u;
typedef uint64_t type_t;

#define PROPERTY(name, signature) type_##signature name;
struct nic_port
{
#include "NicPort.inc"
};
#undef PROPERTY
#define PROPERTY(name, signature)                                                                  \
    SD_BUS_PROPERTY(#name, #signature, NULL, offsetof(struct nic_port, name),                      \
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
static const sd_bus_vtable nic_port_vtable[] = {
    SD_BUS_VTABLE_START(0),
#include "NicPort.inc"
    SD_BUS_VTABLE_END,
};

static int try_int32(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    int32_t value = 0;
    const int result = sd_bus_message_read_basic(call, 'i', &value);
    return result < 0 ? result : sd_bus_reply_method_return(call, "i", value);
}

static const sd_bus_vtable sample_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Try_int32", "i", "i", try_int32, 0),
    SD_BUS_VTABLE_END,
};

static void check(int result, const char* call)
{
    if (result < 0)
    {
        fprintf(stderr, "%s: %s\n", call, strerror(-result));
        exit(EXIT_FAILURE);
    }
}

static void* add_object(sd_bus* bus, const char* path, const char* interface,
                        const sd_bus_vtable* vtable, size_t size)
{
    void* object = calloc(1, size);
    check(object != NULL ? 0 : -ENOMEM, "calloc");
    check(sd_bus_add_object_manager(bus, NULL, path), "sd_bus_add_object_manager");
    check(sd_bus_add_object_vtable(bus, NULL, path, interface, vtable, object),
          "sd_bus_add_object_vtable");
    return object;
}

static void add_nic_port(sd_bus* bus, long number)
{
    char path[64];
    snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
    struct nic_port* port =
        add_object(bus, path, "com.orvane.velmar.system.NicPort", nic_port_vtable, sizeof *port);
    port->FQDD = strdup("NIC.Integrated.1-1-1");
    port->FamilyDriverVersion = strdup("22.31.6");
    port->FriendlyFQDD = strdup("Integrated NIC 1 Port 1 Partition 1");
    port->LinkSpeed = 255;
    port->dohObjStatus = 1;
}

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return EXIT_FAILURE;
    }
    sd_bus* bus = NULL;
    sd_event* event = NULL;
    check(sd_bus_default_system(&bus), "sd_bus_default_system");
    check(sd_event_default(&event), "sd_event_default");
    check(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    check(sd_bus_request_name(bus, argv[1], 0), "sd_bus_request_name");
    add_object(bus, "/com/orvane/velmar/sample/gantrytest", "com.orvane.velmar.sample.gantrytest",
               sample_vtable, 1);
    for (long number = 0; number < atol(argv[2]); ++number)
    {
        add_nic_port(bus, number);
    }
    puts("ready");
    fflush(stdout);
    check(sd_event_loop(event), "sd_event_loop");
    return EXIT_FAILURE;
}
