/*
 * A published object, and which of its properties its host has changed. A value is stored only if
 * it differs from the object's own, and without a signal; object_announce then tells clients of all
 * that changed in one. So an object is filled and followed by the same code.
 */
#ifndef OBJECT_H
#define OBJECT_H

#include <gantry/gantry.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum
{
    object_most_changes = 31 /* more than any object here has at a time */
};

struct object
{
    GANTRY_instance* instance;
    const char* changed[object_most_changes + 1]; /* ended by a null, as the library wants it */
    size_t changed_count;
};

/* The creating functions of interfaces without methods, which take no table of callbacks. */
typedef void object_create(GANTRY_cpp_context* context, const void* table, const char* path,
                           void* user_private);

/*
 * Publishes an object of the interface that `create` is of: at the interface's default path, or
 * below it if a name is given. False when it failed, of which the log tells.
 */
bool object_publish(struct object* object, GANTRY_cpp_context* context, object_create* create,
                    const char* interface, const char* name);

/* Tells the bus that the object is there, as it now is: for one that comes behind the others. */
void object_announce_added(struct object* object);

/* Withdraws the object from the bus, which is told. */
void object_withdraw(struct object* object);

/* Stores a value unless it is too large for the property. The name must outlive the announcement.
 */
typedef void object_put(struct object* object, const char* member, uint64_t value);
object_put object_put_byte;
object_put object_put_uint16;
object_put object_put_uint32;
object_put object_put_uint64;

/* Stores a copy; null leaves the property as it is. */
void object_put_string(struct object* object, const char* member, const char* text);

/* Stores a text made as by printf. */
__attribute__((format(printf, 3, 4))) void
object_put_format(struct object* object, const char* member, const char* format, ...);

/* One PropertiesChanged for all that changed since the last; none if nothing did. */
void object_announce(struct object* object);

/* Nothing is left to announce: of an object that nobody has seen yet. */
void object_forget_changes(struct object* object);

#endif
