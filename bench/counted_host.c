/*
 * A host under callgrind, for bench/instructions. Calls make the library read, serve, change and
 * emit; Dump writes what was counted since the last Dump, under a name.
 *
 *     counted_host
 */
#include <gantry/gantry.h>

#include <systemd/sd-bus.h>

#include <valgrind/callgrind.h>

#include <stdio.h>
#include <stdlib.h>

static GANTRY_instance* port;

static int change(sd_bus_message* call, void* data, sd_bus_error* error)
{
    (void)data, (void)error;
    static unsigned long value;
    GANTRY_property_set_uint64(port, "ReceiveTotalBytes", ++value, false, NULL);
    return sd_bus_reply_method_return(call, NULL);
}

static int emit(sd_bus_message* call, void* data, sd_bus_error* error)
{
    (void)data, (void)error;
    GANTRY_signal__com_orvane_velmar_HWInventory__Refresh(NULL, "counted");
    return sd_bus_reply_method_return(call, NULL);
}

static int dump(sd_bus_message* call, void* data, sd_bus_error* error)
{
    (void)data, (void)error;
    const char* name = NULL;
    const int result = sd_bus_message_read_basic(call, 's', (void*)&name);
    CALLGRIND_DUMP_STATS_AT(name);
    return result < 0 ? result : sd_bus_reply_method_return(call, NULL);
}

static const sd_bus_vtable counting[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Change", NULL, NULL, change, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Emit", NULL, NULL, emit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Dump", "s", NULL, dump, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

static void try_int32(GANTRY_instance* instance, int in, int* out)
{
    (void)instance;
    *out = in;
}

int main(void)
{
    static const GANTRY_table__com_orvane_velmar_sample_gantrytest sample = {.Try_int32 =
                                                                                 try_int32};
    sd_bus* bus = NULL; /* the context's own */
    GANTRY_context_set_service(NULL, "com.orvane.velmar.bench");
    GANTRY_instantiate__com_orvane_velmar_HWInventory(NULL, NULL, NULL, NULL);
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &sample, NULL, NULL);
    GANTRY_instantiate__com_orvane_velmar_system_NicPort(NULL, NULL, NULL, NULL);
    GANTRY_instance_get_created(NULL, &port, NULL);
    if (sd_bus_default_system(&bus) < 0 ||
        sd_bus_add_object_vtable(bus, NULL, "/counting", "com.orvane.velmar.bench", counting,
                                 NULL) < 0)
    {
        return EXIT_FAILURE;
    }
    puts("ready");
    fflush(stdout);
    GANTRY_dbus_loop(NULL);
    return EXIT_FAILURE;
}
