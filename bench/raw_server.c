/*
 * The limit: NicPort objects and one QSFPD as a C programmer writes them on raw sd-bus, with
 * properties that sd-bus reads from memory itself, and the loop shape of GANTRY_dbus_loop. With
 * GET_CALLBACKS each property has a get callback instead.
 *
 *     raw_server COUNT       prints "ready" when COUNT NicPort objects are served
 */
#define _GNU_SOURCE
#include "nic_port.h"
#include "qsfpd.h"

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
struct qsfpd
{
    QSFPD_PROPERTIES(FIELD)
};

#ifdef GET_CALLBACKS
/* A get callback a property, as in the library's tables: sd-bus hands it the field. */
static int get_property(sd_bus* bus, const char* path, const char* interface, const char* property,
                        sd_bus_message* reply, void* field, sd_bus_error* error, char type)
{
    (void)bus, (void)path, (void)interface, (void)property, (void)error;
    return sd_bus_message_append_basic(reply, type, type == 's' ? *(char**)field : field);
}

#define GET(name, type)                                                                            \
    static int name(sd_bus* b, const char* p, const char* i, const char* n, sd_bus_message* r,     \
                    void* f, sd_bus_error* e)                                                      \
    {                                                                                              \
        return get_property(b, p, i, n, r, f, e, type);                                            \
    }
GET(get_y, 'y')
GET(get_n, 'n')
GET(get_q, 'q')
GET(get_u, 'u')
GET(get_t, 't')
GET(get_d, 'd')
GET(get_s, 's')

#define GETTER(signature)                                                                          \
    ((signature)[0] == 'y'   ? get_y                                                               \
     : (signature)[0] == 'n' ? get_n                                                               \
     : (signature)[0] == 'q' ? get_q                                                               \
     : (signature)[0] == 'u' ? get_u                                                               \
     : (signature)[0] == 't' ? get_t                                                               \
     : (signature)[0] == 'd' ? get_d                                                               \
                             : get_s)
#else
/* sd-bus reads the field itself. */
#define GETTER(signature) NULL
#endif

#define ROW(object, name, signature)                                                               \
    SD_BUS_PROPERTY(#name, signature, GETTER(signature), offsetof(struct object, name),            \
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
#define NIC_PORT_ROW(name, signature, type) ROW(nic_port, name, signature)
static const sd_bus_vtable nic_port_vtable[] = {
    SD_BUS_VTABLE_START(0),
    NIC_PORT_PROPERTIES(NIC_PORT_ROW) SD_BUS_VTABLE_END,
};
#define QSFPD_ROW(name, signature, type) ROW(qsfpd, name, signature)
static const sd_bus_vtable qsfpd_vtable[] = {
    SD_BUS_VTABLE_START(0),
    QSFPD_PROPERTIES(QSFPD_ROW) SD_BUS_VTABLE_END,
};

static void check(int result, const char* call)
{
    if (result < 0)
    {
        fprintf(stderr, "%s: %s\n", call, strerror(-result));
        exit(1);
    }
}

static void add_object(sd_bus* bus, const char* path, const char* interface,
                       const sd_bus_vtable* vtable, void* object)
{
    if (object == NULL)
    {
        abort();
    }
    check(sd_bus_add_object_manager(bus, NULL, path), "sd_bus_add_object_manager");
    check(sd_bus_add_object_vtable(bus, NULL, path, interface, vtable, object),
          "sd_bus_add_object_vtable");
}

static void add_nic_port(sd_bus* bus, long number)
{
    char path[64];
    snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
    struct nic_port* port = calloc(1, sizeof *port);
    add_object(bus, path, "com.orvane.velmar.system.NicPort", nic_port_vtable, port);
    port->FQDD = strdup("NIC.Integrated.1-1-1");
    port->FamilyDriverVersion = strdup("22.31.6");
    port->FriendlyFQDD = strdup("Integrated NIC 1 Port 1 Partition 1");
    port->LinkSpeed = 255;
    port->dohObjStatus = 1;
}

static void add_qsfpd(sd_bus* bus)
{
    struct qsfpd* module = calloc(1, sizeof *module);
    add_object(bus, "/com/orvane/velmar/system/QSFPD", "com.orvane.velmar.system.QSFPD",
               qsfpd_vtable, module);
    module->FQDD = strdup("NIC.Integrated.1-1-1");
    module->VendorName = strdup("Vendor");
    module->Vendor_SN = strdup("0123456789");
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
        add_nic_port(bus, number);
    }
    add_qsfpd(bus);
    puts("ready");
    fflush(stdout);
    check(sd_event_loop(event), "sd_event_loop");
    return 1;
}
