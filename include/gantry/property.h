/*
 * An object's properties by their D-Bus names, for the host that publishes it.
 *
 * A setter stores a value that differs from the present one and, unless `skip_signal` is set,
 * announces it on the bus; an equal value changes nothing. GANTRY_property_announce announces
 * several properties at once. The property must have the D-Bus type that <gantry/types.h> maps to
 * the function's C type.
 *
 * *error gets 0 or a positive errno; on an error a getter leaves *out unchanged. `error` may be
 * null: then the log gets what *error would.
 *
 *     EINVAL   the property has another type; the instance or `out` is null; an array record has a
 *              count that no message can have
 *     EMSGSIZE the value has more than 32 MiB less 64 KiB in a message: a system bus takes no
 *              message of more than 32 MiB by default; nothing is stored
 *     ENOENT   the object has no property of that name, or the name is null
 *     ENOMEM   memory ran out; a setter may have stored the value, and announced it
 *     another  a getter that the announcement runs threw, and the value is stored; or, only for
 *              GANTRY_property_announce, the signal couldn't be sent
 *
 * The last two are also logged. That its signal couldn't be sent, a setter logs but doesn't report.
 *
 * Call all functions on the context's thread.
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

/* Strings (D-Bus s). The text is copied; null means empty. The caller releases *out, which is never
 * null, with free(). */
GANTRY_API void GANTRY_property_set_string(GANTRY_instance* instance, const char* member,
                                           const char* value, bool skip_signal, int* error);
GANTRY_API void GANTRY_property_get_string(GANTRY_instance* instance, const char* member,
                                           char** out, int* error);

/* Arrays of strings (D-Bus as). The record is copied; null means empty, for the record and for each
 * text in it. The caller releases *out, which is null for an empty array, with
 * GANTRY_strings_free. */
GANTRY_API void GANTRY_property_set_strings(GANTRY_instance* instance, const char* member,
                                            const GANTRY_string_array* value, bool skip_signal,
                                            int* error);
GANTRY_API void GANTRY_property_get_strings(GANTRY_instance* instance, const char* member,
                                            GANTRY_string_array** out, int* error);

/* Releases such a record, its elements and its texts, and sets *strings to null. Does nothing if
 * `strings` or *strings is null. */
GANTRY_API void GANTRY_strings_free(GANTRY_string_array** strings);

/* Sets *out to the D-Bus signature of the property's type, which is valid as long as the library;
 * to null if the object has no such property. `out` must not be null. */
GANTRY_API void GANTRY_property_get_type(GANTRY_instance* instance, const char* member,
                                         const char** out);

/* Calls `each` for every property of the object, in the order of its table. Both texts are valid as
 * long as the library. `each` may free the instance. */
GANTRY_API void GANTRY_property_list(GANTRY_instance* instance,
                                     void (*each)(GANTRY_instance* instance, const char* member,
                                                  const char* signature, void* data),
                                     void* data);

/*
 * Announces the present values of several properties in one PropertiesChanged signal. `members` is
 * a null-terminated array of their names; null means no names. A name that the object doesn't have
 * (ENOENT) or whose property never announces a change (EINVAL) is logged and skipped, the others
 * are still sent, and *error gets the errno of the first skipped name. A repeated name is sent
 * once. If no name is left, nothing is sent.
 */
GANTRY_API void GANTRY_property_announce(GANTRY_instance* instance, const char* const* members,
                                         int* error);

GANTRY_END_C

#endif
