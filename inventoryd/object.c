#define _POSIX_C_SOURCE 200809L /* strdup */

#include "object.h"

#include "devices.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>

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

static void put_counters(struct object* object)
{
    if (object->kind->put_counters != NULL)
    {
        are_counters = true;
        object->kind->put_counters(object);
        are_counters = false;
    }
}

void object_complete(struct object* object)
{
    put_counters(object);
    object_announce(object);
}

bool object_has_changes(const struct object* object)
{
    return object->is_new || changed == object;
}

static bool publish(struct object* object)
{
    char parent[256];
    char* path = NULL; /* the default path */
    if (object_is_unpublished)
    {
        return true;
    }
    /* An interface's default path is its name with slashes. */
    snprintf(parent, sizeof parent, "/%s", object->kind->interface);
    for (char* dot = parent; (dot = strchr(dot, '.')) != NULL;)
    {
        *dot = '/';
    }
    /* D-Bus allows few characters in a path, so others are encoded. */
    if (object->name[0] == '\0' || sd_bus_path_encode(parent, object->name, &path) >= 0)
    {
        object->kind->create(NULL, NULL, path, object);
        GANTRY_instance_get_created(NULL, &object->instance, NULL);
    }
    free(path);
    return object->instance != NULL;
}

static void release(struct object* object)
{
    free(object->name);
    free(object->device);
    free(object);
}

/* A scan mostly finds the objects in the order of the former one, so each search begins where the
 * last one ended. */
static struct object* find(struct kind* kind, const char* name)
{
    struct object* const begin = kind->last_found != NULL && kind->last_found->next != NULL
                                     ? kind->last_found->next
                                     : kind->first;
    struct object* each = begin;
    while (each != NULL && strcmp(each->name, name) != 0)
    {
        each = each->next != NULL ? each->next : kind->first;
        if (each == begin)
        {
            return NULL;
        }
    }
    return each;
}

static struct object* add(struct kind* kind, const char* name, const char* device)
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
    if (object->name == NULL || object->device == NULL || !publish(object))
    {
        release(object);
        return NULL;
    }
    struct object** place = kind->last_found != NULL ? &kind->last_found->next : &kind->first;
    object->next = *place;
    *place = object;
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
    struct object* object = find(kind, name);
    if (object == NULL && (object = add(kind, name, device)) == NULL)
    {
        return NULL;
    }
    kind->last_found = object;
    const bool is_known = object->scan == scan;
    object->scan = scan;
    if (strcmp(object->device, device) != 0 && !is_known)
    {
        char* moved = strdup(device);
        if (moved != NULL)
        {
            free(object->device);
            object->device = moved;
            return object;
        }
    }
    return object->is_new || devices_is_due(device) ? object : NULL;
}

static void withdraw_unseen(struct kind* kind)
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
    kind->last_found = NULL;
}

void objects_end_scan(void)
{
    for (struct kind* kind = kinds; kind != NULL; kind = kind->next)
    {
        withdraw_unseen(kind);
    }
    ++scan;
}

bool kind_has(const struct kind* kind, const struct object* object)
{
    const struct object* each = kind->first;
    while (each != NULL && each != object)
    {
        each = each->next;
    }
    return each != NULL;
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

/* Whether it is the kind's turn in this round. */
static bool has_turn(const struct kind* kind, unsigned int round)
{
    unsigned int count = 0;
    unsigned int place = 0;
    for (const struct kind* each = kinds; each != NULL; each = each->next)
    {
        place = each == kind ? count : place;
        count += each->turns == kind->turns ? 1 : 0;
    }
    return kind->turns == NULL || round % count == place;
}

void objects_refresh(void)
{
    static unsigned int round;
    ++round;
    for (struct kind* kind = kinds; kind != NULL; kind = kind->next)
    {
        if (kind->put_counters != NULL && has_turn(kind, round))
        {
            for (struct object* each = kind->first; each != NULL; each = each->next)
            {
                object_complete(each);
            }
        }
    }
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
        if (count > 0)
        {
            fprintf(stderr, "%s%zu %s", separator, count, strrchr(kind->interface, '.') + 1);
            separator = ", ";
        }
    }
    fputc('\n', stderr);
}

bool objects_have_changed(void)
{
    const bool were_changed = have_changed;
    have_changed = false;
    return were_changed;
}

void objects_free(void)
{
    for (; kinds != NULL; kinds = kinds->next)
    {
        while (kinds->first != NULL)
        {
            struct object* object = kinds->first;
            kinds->first = object->next;
            release(object);
        }
    }
}

/* Defines object_put_TYPE for values of `given`, of which the property holds those that `stored`
 * can. */
#define DEFINE_PUT(type, given, stored)                                                            \
    void object_put_##type(struct object* object, const char* member, given value)                 \
    {                                                                                              \
        stored present = 0;                                                                        \
        int error = 0;                                                                             \
        if (object->instance != NULL && value == (given)(stored)value)                             \
        {                                                                                          \
            GANTRY_property_get_##type(object->instance, member, &present, &error);                \
            if (error == 0 && (stored)value != present)                                            \
            {                                                                                      \
                hold(object);                                                                      \
                GANTRY_property_set_##type(object->instance, member, (stored)value,                \
                                           object->is_new, &error);                                \
            }                                                                                      \
            report(member, error);                                                                 \
        }                                                                                          \
    }

DEFINE_PUT(byte, uint64_t, unsigned char)
DEFINE_PUT(int16, int, short)
DEFINE_PUT(uint16, uint64_t, unsigned short)
DEFINE_PUT(uint32, uint64_t, unsigned int)
DEFINE_PUT(uint64, uint64_t, unsigned long)
DEFINE_PUT(double, double, double)
DEFINE_PUT(boolean, bool, bool)

enum object_switch object_switch(bool is_known, bool is_on)
{
    return !is_known ? switch_unknown : is_on ? switch_on : switch_off;
}

void object_put_string(struct object* object, const char* member, const char* text)
{
    char* present = NULL;
    int error = 0;
    if (text == NULL || object->instance == NULL)
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
