/*
 * A client of a host: prints the paths of its objects, then what is added and removed.
 *
 *     client [SERVICE [ROOT]]
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>

static const char manager[] = "org.freedesktop.DBus.ObjectManager";

static int show(const char* word, sd_bus_message* message)
{
    const char* path = NULL;
    int result = sd_bus_message_read_basic(message, 'o', &path);
    if (result > 0)
    {
        printf("%s %s\n", word, path);
        fflush(stdout);
    }
    return result;
}

static int on_signal(sd_bus_message* signal, void* data, sd_bus_error* error)
{
    (void)data, (void)error;
    if (sd_bus_message_is_signal(signal, manager, "InterfacesAdded") > 0)
    {
        return show("added", signal);
    }
    return show("removed", signal);
}

/* The reply is an array of dictionary entries: a path, and its interfaces with their properties. */
static int show_all(sd_bus_message* reply)
{
    int result = sd_bus_message_enter_container(reply, 'a', "{oa{sa{sv}}}");
    while (result >= 0 && (result = sd_bus_message_enter_container(reply, 'e', "oa{sa{sv}}")) > 0)
    {
        if ((result = show("found", reply)) >= 0 &&
            (result = sd_bus_message_skip(reply, "a{sa{sv}}")) >= 0)
        {
            result = sd_bus_message_exit_container(reply);
        }
    }
    return result;
}

int main(int argc, char** argv)
{
    const char* service = argc > 1 ? argv[1] : "com.orvane.velmar.inventory";
    const char* root = argc > 2 ? argv[2] : "/com/orvane/velmar";
    sd_bus* bus = NULL;
    sd_bus_message* reply = NULL;

    /* The signals first, so that nothing is missed between the reply and them. */
    int result = sd_bus_open_system(&bus);
    if (result >= 0 &&
        (result = sd_bus_match_signal(bus, NULL, service, root, manager, NULL, on_signal, NULL)) >=
            0 &&
        (result = sd_bus_call_method(bus, service, root, manager, "GetManagedObjects", NULL, &reply,
                                     "")) >= 0)
    {
        result = show_all(reply);
    }
    sd_bus_message_unref(reply);
    while (result >= 0)
    {
        result = sd_bus_process(bus, NULL);
        if (result == 0)
        {
            result = sd_bus_wait(bus, UINT64_MAX);
        }
    }
    fprintf(stderr, "%s\n", strerror(-result));
    sd_bus_flush_close_unref(bus);
    return EXIT_FAILURE;
}
