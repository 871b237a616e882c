#include "object.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>

static void report(const char* name, int error)
{
    if (error != 0)
    {
        fprintf(stderr, SD_WARNING "%s: %s\n", name, strerror(error));
    }
}

bool object_publish(struct object* object, GANTRY_cpp_context* context, object_create* create,
                    const char* interface, const char* name)
{
    char parent[256];
    char* path = NULL; /* the default path */
    object->instance = NULL;
    object->changed_count = 0;

    /* An interface's default path is its name with slashes. */
    snprintf(parent, sizeof parent, "/%s", interface);
    for (char* dot = parent; (dot = strchr(dot, '.')) != NULL;)
    {
        *dot = '/';
    }
    /* D-Bus allows few characters in a path, so others are encoded. */
    if (name == NULL || sd_bus_path_encode(parent, name, &path) >= 0)
    {
        create(context, NULL, path, NULL);
        GANTRY_instance_get_created(context, &object->instance, NULL);
    }
    free(path);
    return object->instance != NULL;
}

void object_announce_added(struct object* object)
{
    int error = 0;
    GANTRY_instance_announce_added(object->instance, &error);
    report("InterfacesAdded", error);
    object_forget_changes(object);
}

void object_withdraw(struct object* object)
{
    GANTRY_instance_free(&object->instance);
}

static void note(struct object* object, const char* member)
{
    if (object->changed_count == object_most_changes)
    {
        object_announce(object);
    }
    object->changed[object->changed_count++] = member;
}

#define DEFINE_PUT(type, value_type)                                                               \
    void object_put_##type(struct object* object, const char* member, uint64_t value)              \
    {                                                                                              \
        value_type present = 0;                                                                    \
        int error = 0;                                                                             \
        GANTRY_property_get_##type(object->instance, member, &present, &error);                    \
        if (error == 0 && value != present && value == (value_type)value)                          \
        {                                                                                          \
            GANTRY_property_set_##type(object->instance, member, (value_type)value, true, &error); \
            note(object, member);                                                                  \
        }                                                                                          \
        report(member, error);                                                                     \
    }

DEFINE_PUT(byte, unsigned char)
DEFINE_PUT(uint16, unsigned short)
DEFINE_PUT(uint32, unsigned int)
DEFINE_PUT(uint64, unsigned long)

enum object_switch object_switch(bool is_known, bool is_on)
{
    return !is_known ? switch_unknown : is_on ? switch_on : switch_off;
}

void object_put_string(struct object* object, const char* member, const char* text)
{
    char* present = NULL;
    int error = 0;
    if (text == NULL)
    {
        return;
    }
    GANTRY_property_get_string(object->instance, member, &present, &error);
    if (error == 0 && strcmp(present, text) != 0)
    {
        GANTRY_property_set_string(object->instance, member, text, true, &error);
        note(object, member);
    }
    report(member, error);
    free(present);
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

void object_forget_changes(struct object* object)
{
    object->changed_count = 0;
}

void object_announce(struct object* object)
{
    int error = 0;
    if (object->changed_count == 0)
    {
        return;
    }
    object->changed[object->changed_count] = NULL;
    object->changed_count = 0;
    GANTRY_property_announce(object->instance, object->changed, &error);
    report("PropertiesChanged", error);
}
