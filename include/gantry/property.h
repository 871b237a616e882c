/*
 * An object's properties by their D-Bus names, for the host that publishes it.
 *
 * A setter stores a value that differs from the present one and, unless `skip_signal` is set,
 * announces it on the bus as PropertiesChanged. An equal value changes nothing.
 * GANTRY_property_announce announces several properties at once. While the bus doesn't read,
 * changes wait; clients are later sent the last value of each property, without those in between.
 * The property must have the D-Bus type that the function's name stands for: <gantry/types.h> lists
 * them.
 *
 * *error gets 0 or a positive errno; on an error a getter leaves *out unchanged. `error` may be
 * null; then a failure is logged.
 *
 *     EINVAL    The property has another type; the instance or `out` is null; an array record has a
 *               count that no message can have.
 *     EMSGSIZE  The value has more than 32 MiB less 64 KiB in a message: by default a system bus
 *               accepts no message of more than 32 MiB. Nothing is stored.
 *     ENOENT    The object has no property of that name, or the name is null.
 *     ENOMEM    Memory ran out; a setter may have stored the value, and announced it.
 *     another   A getter that the announcement runs threw, and the value is stored; or the signal
 *               of GANTRY_property_announce couldn't be sent.
 *
 * The last two are also logged. If a setter's signal couldn't be sent, this is only logged.
 *
 * Call all functions on the context's thread.
 */
#ifndef GANTRY_PROPERTY_H
#define GANTRY_PROPERTY_H

#include <gantry/instance.h>
#include <gantry/records.h>
#include <gantry/types.h>

#ifndef NDEBUG
#include <string.h> /* NOLINT(modernize-deprecated-headers): for C as well */
#endif

GANTRY_BEGIN_C

/* Sets or gets a number or a boolean, by value. */
#define GANTRY_DECLARE_ACCESS(type, value_type)                                                    \
    GANTRY_API void GANTRY_property_set_##type(GANTRY_instance* instance, const char* member,      \
                                               value_type value, bool skip_signal, int* error);    \
    GANTRY_API void GANTRY_property_get_##type(GANTRY_instance* instance, const char* member,      \
                                               value_type* out, int* error);
GANTRY_FIXED_SIZE_TYPES(GANTRY_DECLARE_ACCESS)
#undef GANTRY_DECLARE_ACCESS

/* Sets or gets a string (D-Bus s). The text is copied; null means empty. The caller releases *out,
 * which is never null, with free(3). */
GANTRY_API void GANTRY_property_set_string(GANTRY_instance* instance, const char* member,
                                           const char* value, bool skip_signal, int* error);
GANTRY_API void GANTRY_property_get_string(GANTRY_instance* instance, const char* member,
                                           char** out, int* error);

/* Sets or gets an array of bytes (D-Bus ay) or of strings (D-Bus as). The record is copied; null
 * means empty, for the record and for each text in it. The caller releases *out, which is null for
 * an empty array, with GANTRY_bytes_free or GANTRY_strings_free. */
GANTRY_API void GANTRY_property_set_bytes(GANTRY_instance* instance, const char* member,
                                          const GANTRY_byte_array* value, bool skip_signal,
                                          int* error);
GANTRY_API void GANTRY_property_get_bytes(GANTRY_instance* instance, const char* member,
                                          GANTRY_byte_array** out, int* error);
GANTRY_API void GANTRY_property_set_strings(GANTRY_instance* instance, const char* member,
                                            const GANTRY_string_array* value, bool skip_signal,
                                            int* error);
GANTRY_API void GANTRY_property_get_strings(GANTRY_instance* instance, const char* member,
                                            GANTRY_string_array** out, int* error);

/* Releases a record that GANTRY_property_get_bytes or GANTRY_property_get_strings made, with its
 * elements and texts, and sets *bytes or *strings to null. Does nothing if the argument is null or
 * points to null. */
GANTRY_API void GANTRY_bytes_free(GANTRY_byte_array** bytes);
GANTRY_API void GANTRY_strings_free(GANTRY_string_array** strings);

/* Sets *out to the D-Bus signature of the property's type, or to null if the object has no such
 * property. The text is valid as long as the library. `out` must not be null. */
GANTRY_API void GANTRY_property_get_type(GANTRY_instance* instance, const char* member,
                                         const char** out);

/* Calls `each` for every property of the object, in the order of its table. Both texts are valid as
 * long as the library. `each` may free the instance, which ends the list. Nothing happens if `each`
 * is null. */
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

/* The instance, as the accessors of each interface's gantry_server.h pass it on. In a build without
 * NDEBUG it is null if the object is of another interface, which makes the call fail with EINVAL.
 */
static inline GANTRY_instance* GANTRY_instance_of(GANTRY_instance* instance, const char* interface)
{
#ifdef NDEBUG
    (void)interface;
#else
    const char* actual = "";
    GANTRY_instance_get_interface(instance, &actual);
    if (strcmp(actual, interface) != 0)
    {
        return 0; /* NOLINT(modernize-use-nullptr): for C as well */
    }
#endif
    return instance;
}

GANTRY_END_C

#endif
