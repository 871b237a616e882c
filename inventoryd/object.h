/*
 * The published objects. All objects of an interface are of one kind, and each has a name there,
 * which is the last part of its path and mustn't change as long as the hardware is the same.
 *
 * A scan finds what there is. It is the same at start and later:
 *
 *     for each device:
 *         struct object* object = object_due(&kind, name, device);
 *         if (object != NULL)
 *         {
 *             object_put_...(object, "Member", value);
 *             object_complete(object);
 *         }
 *     objects_end_scan();
 *
 * An object that isn't known is published, one that is known is given if it has to be read again,
 * and what the scan didn't come to is withdrawn at its end. object_put_* stores a value only if it
 * differs, and has the change held; object_complete puts the counters too, and announces the object
 * if it is new, or all its changes in one signal.
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

/* The creating functions of interfaces without methods; their table is a const void*. */
typedef void object_create(GANTRY_cpp_context* context, const void* table, const char* path,
                           void* user_private);

struct object
{
    GANTRY_instance* instance; /* whose user_private is the object */
    char* name;                /* empty for the only object of its kind */
    char* device;              /* the sysfs directory that it was read from */
    uint64_t tag;              /* the reader's own, such as an interface's number */
    uint64_t read_at; /* likewise, in seconds, if it isn't read each time that it could be */
    /* object.c's own: */
    const struct kind* kind;
    struct object* next;
    unsigned int scan;
    bool is_new;
};

struct kind
{
    const char* interface;
    object_create* create;
    /* Puts again what changes all the time, the counters and the link's state, from the object's
     * device and tag; null if it has none. It is called by the counters' timer, and for a client
     * that reads them. */
    void (*put_counters)(struct object* object);
    /* Of the kinds with the same name here, one has its turn at each interval of the timer. So a
     * port and its partition, which mostly change together, cost one message per interval. */
    const char* turns;
    /* object.c's own: */
    struct kind* next;
    struct object* first;
    struct object* last_found;
    bool is_listed;
};

/* The interface and the creating function of a kind, as OBJECT_KIND(system, NicPort). */
#define OBJECT_KIND(group, name)                                                                   \
    .interface = "com.orvane.velmar." #group "." #name,                                            \
    .create = GANTRY_instantiate__com_orvane_velmar_##group##_##name

/* Whether there is no bus: then nothing is published, and what is put is dropped. */
extern bool object_is_unpublished;

/* Withdraws the objects of all kinds that weren't due since the last call. */
void objects_end_scan(void);

/*
 * The object of that name if it is new or its device has changed (devices.h), and so has to be
 * read; otherwise null. It is published at the interface's default path, or below it if the name
 * isn't empty. A failure is logged, and gives null.
 */
struct object* object_due(struct kind* kind, const char* name, const char* device);

/* Whether the object is still one of the kind. */
bool kind_has(const struct kind* kind, const struct object* object);

/* The first object of the kind with that tag, or null. */
struct object* kind_find(const struct kind* kind, uint64_t tag);

/* Announces what has changed since the last call: the object, or its changes. The first function
 * puts the counters before; it is also what brings one object's counters up to date. */
void object_complete(struct object* object);
void object_announce(struct object* object);

/* Whether it has something to announce. */
bool object_has_changes(const struct object* object);

/* Puts the counters of all objects again whose kind has its turn, and announces the changes. */
void objects_refresh(void);

/* Objects that are made before this call aren't announced: no client can know of them. Logs how
 * many there are of each interface. */
void objects_declare_complete(void);

/* Whether an object was added, changed or withdrawn since the last call; counters don't count. */
bool objects_have_changed(void);

/* Frees the memory. The context owns the objects on the bus. */
void objects_free(void);

enum object_switch
{
    switch_unknown,
    switch_on,
    switch_off
};

/* The code of a switch, for a byte. */
enum object_switch object_switch(bool is_known, bool is_on);

/* Stores a value unless it is too large for the property. */
typedef void object_put(struct object* object, const char* member, uint64_t value);
object_put object_put_byte;
object_put object_put_uint16;
object_put object_put_uint32;
object_put object_put_uint64;
void object_put_int16(struct object* object, const char* member, int value);
void object_put_double(struct object* object, const char* member, double value);
void object_put_boolean(struct object* object, const char* member, bool value);

/* Stores a copy; null leaves the property as it is. */
void object_put_string(struct object* object, const char* member, const char* text);

/* Stores a copy of the texts. */
void object_put_strings(struct object* object, const char* member,
                        const GANTRY_string_array* texts);

/* Stores a text made as by printf. */
__attribute__((format(printf, 3, 4))) void
object_put_format(struct object* object, const char* member, const char* format, ...);

#endif
