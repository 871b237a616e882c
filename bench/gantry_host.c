/*
 * The host that is measured: objects of 60 properties, and methods that return their arguments, on
 * the library. Try_uint32 defers its call, and an event source answers it.
 *
 *     gantry_host SERVICE COUNT dbus|sd    prints "ready" when COUNT NicPort objects are served,
 *                                          under GANTRY_dbus_loop or GANTRY_dbus_sdloop
 */
#define _POSIX_C_SOURCE 200809L /* strdup */

#include <gantry/gantry.h>

#include <systemd/sd-event.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void try_int32(GANTRY_instance* instance, int in, int* out)
{
    (void)instance;
    *out = in;
}

static sd_event_source* answering;
static GANTRY_call* deferred;
static unsigned int answer;

static int answer_deferred(sd_event_source* source, void* data)
{
    (void)source, (void)data;
    GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_uint32(&deferred, answer, NULL);
    return 0;
}

static void try_uint32(GANTRY_instance* instance, unsigned int in, unsigned int* out)
{
    (void)out;
    GANTRY_call_defer(instance, &deferred, NULL);
    answer = in;
    sd_event_source_set_enabled(answering, SD_EVENT_ONESHOT);
}

static void try_array_string(GANTRY_instance* instance, GANTRY_string_array* in,
                             GANTRY_string_array** out)
{
    (void)instance;
    GANTRY_string_array* copy = calloc(1, sizeof *copy);
    if (copy != NULL && (copy->data = calloc(in->count, sizeof(char*))) != NULL)
    {
        copy->count = in->count;
        for (unsigned long i = 0; i < in->count; ++i)
        {
            copy->data[i] = strdup(in->data[i]);
        }
    }
    *out = copy;
}

static const GANTRY_table__com_orvane_velmar_sample_gantrytest sample = {
    .Try_int32 = try_int32,
    .Try_uint32 = try_uint32,
    .TryArrayString = try_array_string,
};

static void set_text(const char* property, const char* text)
{
    GANTRY_instance* created = NULL;
    GANTRY_instance_get_created(NULL, &created, NULL);
    GANTRY_property_set_string(created, property, text, true, NULL);
}

int main(int argc, char** argv)
{
    sd_event* event = NULL;
    if (argc != 4 || sd_event_default(&event) < 0 ||
        sd_event_add_defer(event, &answering, answer_deferred, NULL) < 0 ||
        sd_event_source_set_enabled(answering, SD_EVENT_OFF) < 0)
    {
        return EXIT_FAILURE;
    }
    GANTRY_context_set_service(NULL, argv[1]);
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &sample, NULL, NULL);
    for (long number = 0; number < atol(argv[2]); ++number)
    {
        char path[64];
        snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(NULL, NULL, path, NULL);
        set_text("FQDD", "NIC.Integrated.1-1-1");
        set_text("FamilyDriverVersion", "22.31.6");
        set_text("FriendlyFQDD", "Integrated NIC 1 Port 1 Partition 1");
    }
    puts("ready");
    fflush(stdout);
    (strcmp(argv[3], "sd") == 0 ? GANTRY_dbus_sdloop : GANTRY_dbus_loop)(NULL);
    return EXIT_FAILURE;
}
