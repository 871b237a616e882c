/*
 * Five methods of the sample interface on the library, under either dispatch loop. Each gives back
 * what it is given; Try_uint32 defers its call, and an event source answers it.
 *
 *     methods_gantry dbus|sd SERVICE    prints "ready" when it serves
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

static void try_string(GANTRY_instance* instance, char* in, char** out)
{
    (void)instance;
    *out = strdup(in);
}

static void try_array(GANTRY_instance* instance, GANTRY_byte_array* in, GANTRY_byte_array** out)
{
    (void)instance;
    GANTRY_byte_array* copy = calloc(1, sizeof *copy);
    if (copy != NULL && (copy->data = malloc(in->count)) != NULL)
    {
        memcpy(copy->data, in->data, in->count);
        copy->count = in->count;
    }
    *out = copy;
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

static const GANTRY_table__com_orvane_velmar_sample_gantrytest table = {
    .Try_int32 = try_int32,
    .Try_uint32 = try_uint32,
    .Try_string = try_string,
    .Try_array = try_array,
    .TryArrayString = try_array_string,
};

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return EXIT_FAILURE;
    }
    GANTRY_context_set_service(NULL, argv[2]);
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &table, NULL, NULL);
    sd_event* event = NULL;
    if (sd_event_default(&event) < 0 ||
        sd_event_add_defer(event, &answering, answer_deferred, NULL) < 0 ||
        sd_event_source_set_enabled(answering, SD_EVENT_OFF) < 0)
    {
        return EXIT_FAILURE;
    }
    puts("ready");
    fflush(stdout);
    (strcmp(argv[1], "sd") == 0 ? GANTRY_dbus_sdloop : GANTRY_dbus_loop)(NULL);
    return EXIT_FAILURE;
}
