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
 * that this host defines therefore don't use 0 for a known fact: a switch is 1 if it is on and 2 if
 * it is off. Numbers that are the kernel's or the device's own may be 0 for either reason.
 */
#ifndef OBJECT_H
#define OBJECT_H

#include <gantry/gantry.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* The creating functions of interfaces; the table of their methods is a const void*. */
typedef void object_create(GANTRY_cpp_context* context, const void* table, const char* path,
                           void* user_private);

struct object
{
    GANTRY_instance* instance; /* whose user_private is the object */
    char* name;                /* empty for the only object of its kind */
    char* device;              /* the sysfs directory that it was read from */
    uint64_t tag;              /* the reader's own, such as an interface's number */
    uint64_t counted_at;       /* when its counters were put, in seconds since the epoch */
    const struct kind* kind;
    bool is_new; /* it isn't announced yet */
    /* object.c's own: */
    struct object* next;
    unsigned int scan;
};

struct kind
{
    const char* interface;
    object_create* create;
    /* Puts again what changes all the time, the counters and the link's state, from the object's
     * device and tag; null if it has none. It is called by the counters' timer, and for a client
     * that reads the object, but not twice in a second, or in half a minute if it is slow. */
    void (*put_counters)(struct object* object);
    bool is_slow;
    /* The timer comes to kinds of turn 1 and of turn 2 at every other interval. So a port and its
     * partition, which mostly change together, cost one message per interval. */
    unsigned int turn;
    /* object.c's own: */
    struct kind* next;
    struct object* first;
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

/* The first object of the kind with that tag, or null. */
struct object* kind_find(const struct kind* kind, uint64_t tag);

/* Announces what has changed since the last call: the object, or its changes. The first function
 * puts the counters before. */
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

/*
 * The property has the type that its interface gives it. A value that is too large for it leaves it
 * as it is, and so does a null text. An interface that has no such property is passed over, so that
 * those that differ in some properties can be put alike.
 */
void object_put_number(struct object* object, const char* member, uint64_t value);
void object_put_real(struct object* object, const char* member, double value);
void object_put_string(struct object* object, const char* member, const char* text);
void object_put_strings(struct object* object, const char* member,
                        const GANTRY_string_array* texts);

/* A counter that is too large for the property stays at the largest number that this can have. One
 * with all 64 bits set isn't counted by its device. */
void object_put_counter(struct object* object, const char* member, uint64_t value);

/* The code of a switch, or 0 if it isn't known. */
enum object_switch
{
    switch_on = 1,
    switch_off = 2
};
void object_put_switch(struct object* object, const char* member, bool is_known, bool is_on);

/* A text made as by printf. */
__attribute__((format(printf, 3, 4))) void
object_put_format(struct object* object, const char* member, const char* format, ...);

/* Both are in seconds since the epoch: StatisticsTime is when a counter was found changed last, and
 * StatisticsStartTime when the counters were read first. To be called after the counters. */
void object_put_statistics_times(struct object* object);

/* The first letter of the property's D-Bus type: 0 if there is no such property, and `?` if nothing
 * is published. */
char object_type(const struct object* object, const char* member);

#endif
