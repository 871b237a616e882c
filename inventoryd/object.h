/*
 * A published object and the names of its changed properties. object_put_* stores a value only if
 * it differs, and without a signal; object_announce announces all changes in one signal. The same
 * code thus fills an object and updates it.
 *
 * A fact that the kernel doesn't offer, or refuses to this process, leaves its property as the
 * library created it: 0, the empty text, or the initial value in the interface's table. The codes
 * that this host defines therefore don't use 0 for a known fact: a switch in a byte is 1 if it is
 * on and 2 if it is off. Numbers that are the kernel's or the device's own may be 0 for either
 * reason.
 */
#ifndef OBJECT_H
#define OBJECT_H

#include <gantry/gantry.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum
{
    object_most_changes = 63 /* more than any object here has at once */
};

enum object_switch
{
    switch_unknown,
    switch_on,
    switch_off
};

struct object
{
    GANTRY_instance* instance;
    const char* changed[object_most_changes + 1]; /* object_announce adds the final null */
    size_t changed_count;
};

/* The creating functions of interfaces without methods; their table is a const void*. */
typedef void object_create(GANTRY_cpp_context* context, const void* table, const char* path,
                           void* user_private);

/*
 * Publishes an object of `create`'s interface: at the interface's default path, or below it if
 * `name` isn't null. False if it failed, which the library logs.
 */
bool object_publish(struct object* object, GANTRY_cpp_context* context, object_create* create,
                    const char* interface, const char* name);

/* Announces the object with its present values; for one that is published after the others. */
void object_announce_added(struct object* object);

/* Removes the object from the bus and announces that. */
void object_withdraw(struct object* object);

/* Stores a value unless it is too large for the property. The name must outlive the announcement.
 */
typedef void object_put(struct object* object, const char* member, uint64_t value);
object_put object_put_byte;
object_put object_put_uint16;
object_put object_put_uint32;
object_put object_put_uint64;

/* The code of a switch, for a byte. */
enum object_switch object_switch(bool is_known, bool is_on);

/* Stores a copy; null leaves the property as it is. */
void object_put_string(struct object* object, const char* member, const char* text);

/* Stores a text made as by printf. */
__attribute__((format(printf, 3, 4))) void
object_put_format(struct object* object, const char* member, const char* format, ...);

/* Sends one PropertiesChanged for all changes since the last one; none if nothing changed. */
void object_announce(struct object* object);

/* Drops the changes without a signal, for an object that no client can have seen yet. */
void object_forget_changes(struct object* object);

#endif
