#define _POSIX_C_SOURCE 200809L /* strdup */

#include "object.h"

#include "devices.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <time.h>

bool object_is_unpublished;

static struct kind* kinds; /* those that have or had objects */
static unsigned int scan = 1;
static bool is_complete;
static bool have_changed;
static bool are_counters; /* whether the present changes are */

/* The object whose changes the library holds: only one is read at a time. */
static const struct object* changed;

static void report(const char* name, int error)
{
    if (error != 0)
    {
        fprintf(stderr, SD_WARNING "%s: %s\n", name, strerror(error));
    }
}

static void send_changes(void)
{
    int error = 0;
    if (changed != NULL)
    {
        changed = NULL;
        GANTRY_context_send_changes(NULL, &error);
        report("PropertiesChanged", error);
    }
}

/* To be called before a value is stored that differs from the present one. */
static void hold(const struct object* object)
{
    if (object->is_new)
    {
        return; /* it is announced with all that it has */
    }
    if (changed != object)
    {
        send_changes();
        changed = object;
        GANTRY_context_hold_changes(NULL);
    }
    have_changed = have_changed || !are_counters;
}

void object_announce(struct object* object)
{
    int error = 0;
    if (!object->is_new)
    {
        send_changes();
        return;
    }
    object->is_new = false;
    have_changed = true;
    if (is_complete)
    {
        GANTRY_instance_announce_added(object->instance, &error);
        report("InterfacesAdded", error);
    }
}

void object_complete(struct object* object)
{
    if (object->kind->put_counters != NULL)
    {
        object->counted_at = (uint64_t)time(NULL);
        are_counters = true;
        object->kind->put_counters(object);
        are_counters = false;
    }
    object_announce(object);
}

static void refresh(struct object* object)
{
    const unsigned int interval = object->kind->is_slow ? 30 : 1;
    if ((uint64_t)time(NULL) - object->counted_at >= interval)
    {
        object_complete(object);
    }
}

void objects_refresh(void)
{
    static unsigned int round;
    ++round;
    for (const struct kind* kind = kinds; kind != NULL; kind = kind->next)
    {
        if (kind->put_counters != NULL && (kind->turn == 0 || kind->turn % 2 == round % 2))
        {
            for (struct object* each = kind->first; each != NULL; each = each->next)
            {
                refresh(each);
            }
        }
    }
}

bool object_has_changes(const struct object* object)
{
    return object->is_new || changed == object;
}

/* A client reads the object; the library calls this. */
static void on_read(GANTRY_instance* instance, void* object)
{
    (void)instance;
    refresh(object);
}

static void release(struct object* object)
{
    free(object->name);
    free(object->device);
    free(object);
}

/* A null path is the interface's default one. */
static struct object* add(struct kind* kind, const char* name, const char* path, const char* device)
{
    struct object* object = calloc(1, sizeof *object);
    if (object == NULL)
    {
        return NULL;
    }
    object->kind = kind;
    object->is_new = true;
    object->name = strdup(name);
    object->device = strdup(device);
    if (!object_is_unpublished)
    {
        kind->create(NULL, NULL, path, object);
        GANTRY_instance_get_created(NULL, &object->instance, NULL);
    }
    if (object->name == NULL || object->device == NULL ||
        (object->instance == NULL && !object_is_unpublished))
    {
        GANTRY_instance_free(&object->instance);
        release(object);
        return NULL;
    }
    if (object->instance != NULL && kind->put_counters != NULL)
    {
        GANTRY_instance_on_read(object->instance, on_read, object);
    }
    object->next = kind->first;
    kind->first = object;
    if (!kind->is_listed)
    {
        kind->is_listed = true;
        kind->next = kinds;
        kinds = kind;
    }
    return object;
}

struct object* object_due(struct kind* kind, const char* name, const char* device)
{
    char parent[256];
    char* path = NULL; /* the default path */
    GANTRY_instance* instance = NULL;
    void* known = NULL;
    /* An interface's default path is its name with slashes. */
    snprintf(parent, sizeof parent, "/%s", kind->interface);
    for (char* dot = parent; (dot = strchr(dot, '.')) != NULL;)
    {
        *dot = '/';
    }
    /* D-Bus allows few characters in a path, so others are encoded. */
    if (*name != '\0' && sd_bus_path_encode(parent, name, &path) < 0)
    {
        return NULL;
    }
    if (!object_is_unpublished)
    {
        GANTRY_instance_find(NULL, kind->interface, path, &instance);
    }
    if (instance != NULL)
    {
        GANTRY_instance_get_user_private(instance, &known);
    }
    struct object* object = known != NULL ? known : add(kind, name, path, device);
    free(path);
    if (object == NULL)
    {
        return NULL;
    }
    const bool is_moved = object->scan != scan && strcmp(object->device, device) != 0;
    char* moved = is_moved ? strdup(device) : NULL;
    if (moved != NULL)
    {
        free(object->device);
        object->device = moved;
    }
    object->scan = scan;
    return object->is_new || is_moved || devices_is_due(device) ? object : NULL;
}

void objects_end_scan(void)
{
    for (struct kind* kind = kinds; kind != NULL; kind = kind->next)
    {
        for (struct object** each = &kind->first; *each != NULL;)
        {
            struct object* object = *each;
            if (object->scan == scan)
            {
                each = &object->next;
                continue;
            }
            *each = object->next;
            have_changed = true;
            GANTRY_instance_free(&object->instance);
            release(object);
        }
    }
    ++scan;
}

struct object* kind_find(const struct kind* kind, uint64_t tag)
{
    struct object* object = kind->first;
    while (object != NULL && object->tag != tag)
    {
        object = object->next;
    }
    return object;
}

void objects_declare_complete(void)
{
    const char* separator = SD_INFO "found ";
    is_complete = true;
    have_changed = false;
    for (const struct kind* kind = kinds; kind != NULL; kind = kind->next)
    {
        size_t count = 0;
        for (const struct object* each = kind->first; each != NULL; each = each->next)
        {
            ++count;
        }
        fprintf(stderr, "%s%zu %s", separator, count, strrchr(kind->interface, '.') + 1);
        separator = ", ";
    }
    fputc('\n', stderr);
}

bool objects_have_changed(void)
{
    const bool were_changed = have_changed;
    have_changed = false;
    return were_changed;
}

char object_type(const struct object* object, const char* member)
{
    const char* type = "?";
    if (object->instance != NULL)
    {
        GANTRY_property_get_type(object->instance, member, &type);
    }
    type = type != NULL ? type : "";
    return *type;
}

/* The largest number that a property of the type can have. */
static uint64_t most_of(char type)
{
    return type == 'b'   ? 1
           : type == 'y' ? UINT8_MAX
           : type == 'q' ? UINT16_MAX
           : type == 'u' ? UINT32_MAX
                         : UINT64_MAX;
}

/* The case of a type with this letter. */
#define STORE(letter, type, stored, value)                                                         \
    case letter:                                                                                   \
    {                                                                                              \
        stored present = 0;                                                                        \
        GANTRY_property_get_##type(object->instance, member, &present, &error);                    \
        if (error == 0 && present != (stored)(value))                                              \
        {                                                                                          \
            hold(object);                                                                          \
            GANTRY_property_set_##type(object->instance, member, (stored)(value), object->is_new,  \
                                       &error);                                                    \
        }                                                                                          \
        break;                                                                                     \
    }

/* `number` is for properties of integers without a sign, `real` for others. */
static void store(const struct object* object, const char* member, uint64_t number, double real)
{
    const char type = object_type(object, member);
    int error = 0;
    if (number <= most_of(type))
    {
        switch (type)
        {
            STORE('b', boolean, bool, number)
            STORE('y', byte, unsigned char, number)
            STORE('n', int16, short, real)
            STORE('q', uint16, unsigned short, number)
            STORE('u', uint32, unsigned int, number)
            STORE('t', uint64, unsigned long, number)
            STORE('d', double, double, real)
        default:
            break;
        }
    }
    report(member, error);
}

void object_put_number(struct object* object, const char* member, uint64_t value)
{
    store(object, member, value, (double)value);
}

void object_put_real(struct object* object, const char* member, double value)
{
    /* No conversion is defined for a value that the integer can't have. */
    const bool fits = value >= 0 && value <= UINT32_MAX;
    store(object, member, fits ? (uint64_t)value : 0, value);
}

void object_put_counter(struct object* object, const char* member, uint64_t value)
{
    const char type = object_type(object, member);
    const uint64_t most = most_of(type);
    if (value != UINT64_MAX && type != '\0')
    {
        object_put_number(object, member, value < most ? value : most);
    }
}

void object_put_switch(struct object* object, const char* member, bool is_known, bool is_on)
{
    object_put_number(object, member, !is_known ? 0 : is_on ? switch_on : switch_off);
}

void object_put_string(struct object* object, const char* member, const char* text)
{
    char* present = NULL;
    int error = 0;
    if (text == NULL || object_type(object, member) != 's')
    {
        return;
    }
    GANTRY_property_get_string(object->instance, member, &present, &error);
    if (error == 0 && strcmp(present, text) != 0)
    {
        hold(object);
        GANTRY_property_set_string(object->instance, member, text, object->is_new, &error);
    }
    report(member, error);
    free(present);
}

void object_put_strings(struct object* object, const char* member, const GANTRY_string_array* texts)
{
    int error = 0;
    if (object->instance != NULL)
    {
        /* Here the library compares, and announces a change by itself. */
        GANTRY_property_set_strings(object->instance, member, texts, object->is_new, &error);
        report(member, error);
    }
}

void object_put_format(struct object* object, const char* member, const char* format, ...)
{
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    object_put_string(object, member, text);
}

void object_put_statistics_times(struct object* object)
{
    const uint64_t now = (uint64_t)time(NULL);
    if (object->is_new)
    {
        object_put_number(object, "StatisticsStartTime", now);
    }
    /* Otherwise the time alone would be a change, each time that the counters are read. */
    if (object_has_changes(object))
    {
        object_put_number(object, "StatisticsTime", now);
    }
}
