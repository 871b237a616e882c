/*
 * An object's properties by their D-Bus names, for the host that publishes it.
 *
 * Setting goes the way of the object's own setter: an equal value changes nothing, another one is
 * stored and announced to the bus, unless `skip_signal`; GANTRY_property_announce then announces
 * several at once. Each call takes the C type that <gantry/types.h> has for the property's D-Bus
 * type, and no other.
 *
 * `error` may be null. It gets 0, or a positive errno, and then a getter's *out is as it was:
 *
 *     EINVAL   the property is of another type; the instance or `out` is null
 *     ENOENT   the object has no property of that name, or the name is null
 *     ENOMEM   memory is short; a setter that announces may have stored the value
 *     another  a getter that the announcement runs threw, and the value is stored; or for
 *              GANTRY_property_announce alone, the signal couldn't be sent
 *
 * The log tells each of the last two. That a setter's own signal couldn't be sent is not reported.
 *
 * All functions belong on the context's thread.
 */
#ifndef GANTRY_PROPERTY_H
#define GANTRY_PROPERTY_H

#include <gantry/instance.h>
#include <gantry/records.h>
#include <gantry/types.h>

GANTRY_BEGIN_C

/* GANTRY_property_set_<type> and GANTRY_property_get_<type>: numbers are copied. */
#define GANTRY_DECLARE_ACCESS(type, value_type)                                                    \
    GANTRY_API void GANTRY_property_set_##type(GANTRY_instance* instance, const char* member,      \
                                               value_type value, bool skip_signal, int* error);    \
    GANTRY_API void GANTRY_property_get_##type(GANTRY_instance* instance, const char* member,      \
                                               value_type* out, int* error);
GANTRY_FIXED_SIZE_TYPES(GANTRY_DECLARE_ACCESS)
#undef GANTRY_DECLARE_ACCESS

/* Strings (D-Bus s). The text is copied; null is the empty one. What *out gets is the caller's to
 * free(), and is never null. */
GANTRY_API void GANTRY_property_set_string(GANTRY_instance* instance, const char* member,
                                           const char* value, bool skip_signal, int* error);
GANTRY_API void GANTRY_property_get_string(GANTRY_instance* instance, const char* member,
                                           char** out, int* error);

/* Arrays of strings (D-Bus as). The record is only read; null is the empty one, and so is null for
 * a text in it. What *out gets is the caller's to release with GANTRY_strings_free; null when the
 * array is empty. */
GANTRY_API void GANTRY_property_set_strings(GANTRY_instance* instance, const char* member,
                                            const GANTRY_string_array* value, bool skip_signal,
                                            int* error);
GANTRY_API void GANTRY_property_get_strings(GANTRY_instance* instance, const char* member,
                                            GANTRY_string_array** out, int* error);

/* Releases such a record, its block and its texts, and sets *strings to null. Null, or null in
 * *strings, is nothing to do. */
GANTRY_API void GANTRY_strings_free(GANTRY_string_array** strings);

/*
 * Announces the present values of several properties in one PropertiesChanged signal. `members` are
 * their names and a null pointer behind the last; null is no name. A name that the object doesn't
 * have, or whose property never announces a change, is told to the log and left out, and the others
 * still go: *error is then the first such name's ENOENT or EINVAL. A name given twice goes once.
 * When no name is left nothing is sent.
 */
GANTRY_API void GANTRY_property_announce(GANTRY_instance* instance, const char* const* members,
                                         int* error);

GANTRY_END_C

#endif
