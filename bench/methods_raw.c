/*
 * The same methods as methods_gantry's as a C programmer writes them on raw sd-bus: no value is
 * copied that needn't be.
 *
 *     methods_raw dbus|sd SERVICE    prints "ready" when it serves, with the loop shape of
 *                                    GANTRY_dbus_loop or with sd_event_loop
 */
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int try_int32(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    int32_t value = 0;
    const int result = sd_bus_message_read_basic(call, 'i', &value);
    return result < 0 ? result : sd_bus_reply_method_return(call, "i", value);
}

static sd_event_source* answering;
static sd_bus_message* deferred;
static uint32_t answer;

static int answer_deferred(sd_event_source* source, void* data)
{
    (void)source, (void)data;
    sd_bus_message* call = deferred;
    deferred = NULL;
    const int result = sd_bus_reply_method_return(call, "u", answer);
    sd_bus_message_unref(call);
    return result;
}

static int try_uint32(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    const int result = sd_bus_message_read_basic(call, 'u', &answer);
    if (result < 0)
    {
        return result;
    }
    deferred = sd_bus_message_ref(call);
    return sd_event_source_set_enabled(answering, SD_EVENT_ONESHOT) < 0 ? -EIO : 1;
}

static int try_string(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    const char* value = NULL;
    const int result = sd_bus_message_read_basic(call, 's', (void*)&value);
    return result < 0 ? result : sd_bus_reply_method_return(call, "s", value);
}

/* Sends the reply that `fill` filled, and releases it. */
static int reply(sd_bus_message* call, int (*fill)(sd_bus_message* call, sd_bus_message* reply))
{
    sd_bus_message* message = NULL;
    int result = sd_bus_message_new_method_return(call, &message);
    if (result >= 0)
    {
        result = fill(call, message);
    }
    if (result >= 0)
    {
        result = sd_bus_send(NULL, message, NULL);
    }
    sd_bus_message_unref(message);
    return result < 0 ? result : 1;
}

static int copy_bytes(sd_bus_message* from, sd_bus_message* to)
{
    const void* data = NULL;
    size_t size = 0;
    const int result = sd_bus_message_read_array(from, 'y', &data, &size);
    return result < 0 ? result : sd_bus_message_append_array(to, 'y', data, size);
}

static int try_array(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    return reply(call, copy_bytes);
}

static int copy_strings(sd_bus_message* from, sd_bus_message* to)
{
    int result = sd_bus_message_enter_container(from, 'a', "s");
    if (result >= 0)
    {
        result = sd_bus_message_open_container(to, 'a', "s");
    }
    const char* value = NULL;
    while (result >= 0 && (result = sd_bus_message_read_basic(from, 's', (void*)&value)) > 0)
    {
        result = sd_bus_message_append_basic(to, 's', value);
    }
    if (result >= 0)
    {
        result = sd_bus_message_exit_container(from);
    }
    return result < 0 ? result : sd_bus_message_close_container(to);
}

static int try_array_string(sd_bus_message* call, void* object, sd_bus_error* error)
{
    (void)object, (void)error;
    return reply(call, copy_strings);
}

static const sd_bus_vtable vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Try_int32", "i", "i", try_int32, 0),
    SD_BUS_METHOD("Try_uint32", "u", "u", try_uint32, 0),
    SD_BUS_METHOD("Try_string", "s", "s", try_string, 0),
    SD_BUS_METHOD("Try_array", "ay", "ay", try_array, 0),
    SD_BUS_METHOD("TryArrayString", "as", "as", try_array_string, 0),
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
    check(sd_bus_add_object_vtable(bus, NULL, "/com/orvane/velmar/sample/gantrytest",
                                   "com.orvane.velmar.sample.gantrytest", vtable, NULL),
          "sd_bus_add_object_vtable");
    check(sd_event_add_defer(event, &answering, answer_deferred, NULL), "sd_event_add_defer");
    check(sd_event_source_set_enabled(answering, SD_EVENT_OFF), "sd_event_source_set_enabled");
    check(sd_bus_request_name(bus, argv[2], 0), "sd_bus_request_name");
    puts("ready");
    fflush(stdout);
    if (strcmp(argv[1], "sd") == 0)
    {
        check(sd_event_loop(event), "sd_event_loop");
        return EXIT_FAILURE;
    }
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
