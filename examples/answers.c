/*
 * A host that answers as it needs, in a loop of its own: a call of "refuse" with an error, of
 * "later" when the bus has been quiet for a while, unless the client has left by then, any other
 * with its caller. It doesn't let "bad" be written, counts what is read, and keeps what the signal
 * Refresh has brought and who sent it, until one brings "last".
 *
 *     busctl call com.orvane.velmar.HWInventory /sample com.orvane.velmar.sample.gantrytest \
 *         Try_string s later
 */
#define _POSIX_C_SOURCE 200809L

#include <gantry/gantry.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A misspelt member is refused by the compiler. */
#define SAMPLE(what, member) GANTRY_##what##__com_orvane_velmar_sample_gantrytest__##member

static GANTRY_call* later;

/* The client has left, so another may be answered later. */
static void drop(GANTRY_call* call, void* data)
{
    GANTRY_call** kept = data;
    if (*kept == call)
    {
        *kept = NULL;
    }
}

static void answer(GANTRY_instance* instance, char* in, char** out)
{
    const char* sender = NULL;
    uid_t user = 0;
    if (strcmp(in, "refuse") == 0)
    {
        GANTRY_call_fail(instance, "com.example.Refused", "as asked", NULL);
    }
    else if (strcmp(in, "later") == 0 && later == NULL)
    {
        GANTRY_call_defer(instance, &later, NULL);
        if (later != NULL)
        {
            GANTRY_call_on_cancel(later, drop, &later, NULL);
        }
    }
    else if ((*out = malloc(64)) != NULL)
    {
        GANTRY_call_get_sender(instance, &sender);
        GANTRY_call_get_credentials(instance, &user, NULL, NULL);
        snprintf(*out, 64, "%s %lu", sender, (unsigned long)user);
    }
}

static void on_write(GANTRY_instance* instance, const char* property, void* refused)
{
    char* value = NULL;
    GANTRY_property_get_string(instance, property, &value, NULL);
    if (value != NULL && strcmp(value, refused) == 0)
    {
        GANTRY_call_fail(instance, "com.example.Refused", property, NULL);
    }
    free(value);
}

static void on_read(GANTRY_instance* instance, void* reads)
{
    unsigned long* count = reads;
    SAMPLE(set, PropUInt64)(instance, ++*count, true, NULL); /* true: no signal for a read */
}

/* Clients get one signal of both changes. */
static void on_refresh(GANTRY_subscription* subscription, char* what, void* instance)
{
    const GANTRY_byte_array bytes = {(unsigned char*)what, strlen(what)};
    const char* sender = NULL;
    GANTRY_signal_get_sender(subscription, &sender);
    GANTRY_context_hold_changes(NULL);
    SAMPLE(set, PropString)(instance, sender, false, NULL);
    SAMPLE(set, PropArray1)(instance, &bytes, false, NULL);
    GANTRY_context_send_changes(NULL, NULL);
    if (strcmp(what, "last") == 0)
    {
        GANTRY_unsubscribe(&subscription);
    }
}

int main(void)
{
    static const GANTRY_table__com_orvane_velmar_sample_gantrytest table = {.Try_string = answer};
    static char refused[] = "bad";
    static unsigned long reads;
    const GANTRY_match from = {.path = "/sender"}; /* of any sender */
    GANTRY_cpp_context* context = NULL;
    GANTRY_instance* instance = NULL;
    struct pollfd bus = {.events = POLLIN};
    GANTRY_context_set_service(NULL, "com.orvane.velmar.HWInventory");
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &table, "/sample", NULL);
    GANTRY_instance_get_created(NULL, &instance, NULL);
    GANTRY_instance_on_write(instance, on_write, refused);
    GANTRY_instance_on_read(instance, on_read, &reads);
    GANTRY_subscribe__com_orvane_velmar_HWInventory__Refresh(NULL, &from, on_refresh, instance,
                                                             NULL, NULL);
    GANTRY_context_get_fd(NULL, &bus.fd);
    do
    {
        GANTRY_dbus_loop_one_pass(NULL);
        if (poll(&bus, 1, 200) == 0 && later != NULL)
        {
            GANTRY_reply__com_orvane_velmar_sample_gantrytest__Try_string(&later, "late", NULL);
        }
        GANTRY_context_management(NULL, &context);
    } while (context != NULL); /* it is null once the connection is lost */
    return EXIT_FAILURE;
}
