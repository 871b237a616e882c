/*
 * Every C form of a D-Bus value, on the two sample interfaces. Each Try method returns its
 * argument, so its function shows one form as input and output; a method and its variant that
 * replies by message share one function. SetString and ChangeContainer also send a signal.
 */
#define _POSIX_C_SOURCE 200809L /* strdup */

#include "options.h"

#include <gantry/gantry.h>

#include <stdlib.h>
#include <string.h>

/* The object's state, which its user pointer points to. */
struct state
{
    char* text;
    int changes;
};

static struct state* state_of(GANTRY_instance* instance)
{
    void* state = NULL;
    GANTRY_instance_get_user_private(instance, &state);
    return state;
}

/* The callback allocates its outputs and the library frees them. Without memory they stay empty. */

static char* copy_text(const char* text)
{
    return text == NULL ? NULL : strdup(text);
}

static void get_string(GANTRY_instance* instance, char** text)
{
    *text = copy_text(state_of(instance)->text);
}

static void set_string(GANTRY_instance* instance, char* text, int* changes)
{
    struct state* state = state_of(instance);
    free(state->text);
    state->text = copy_text(text); /* the input is valid only during the call, so copy it */
    *changes = ++state->changes;
    GANTRY_signal__com_orvane_velmar_sample_gantrytest__faultAdded(instance, text);
}

static void change_container(GANTRY_instance* instance, int* changes)
{
    struct state* state = state_of(instance);
    unsigned long numbers[] = {1, 2, 3};
    GANTRY_uint64_array array = {numbers, 3};
    GANTRY_struct_quat values = {7, 70000, &array}; /* the signal copies it */

    *changes = ++state->changes;
    GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes(instance, &values,
                                                                     state->text);
}

static void get_changes(GANTRY_instance* instance, int* changes)
{
    *changes = state_of(instance)->changes;
}

#define TRY(type, value)                                                                           \
    static void try_##type(GANTRY_instance* instance, value in, value* out)                        \
    {                                                                                              \
        (void)instance;                                                                            \
        *out = in;                                                                                 \
    }
GANTRY_FIXED_SIZE_TYPES(TRY)

static void try_string(GANTRY_instance* instance, char* in, char** out)
{
    (void)instance;
    *out = copy_text(in);
}

/* Arrays of numbers: a record and its elements. An empty array is a null pointer, in and out. */
#define TRY_ARRAY(type, element)                                                                   \
    static GANTRY_##type##_array* copy_##type##_array(const GANTRY_##type##_array* from)           \
    {                                                                                              \
        if (from == NULL)                                                                          \
        {                                                                                          \
            return NULL;                                                                           \
        }                                                                                          \
        GANTRY_##type##_array* to = calloc(1, sizeof *to);                                         \
        if (to != NULL)                                                                            \
        {                                                                                          \
            to->data = calloc(from->count, sizeof(element));                                       \
            if (to->data != NULL)                                                                  \
            {                                                                                      \
                memcpy(to->data, from->data, from->count * sizeof(element));                       \
                to->count = from->count;                                                           \
            }                                                                                      \
        }                                                                                          \
        return to;                                                                                 \
    }
TRY_ARRAY(byte, unsigned char)
TRY_ARRAY(int16, short)
TRY_ARRAY(uint32, unsigned int)

static void try_byte_array(GANTRY_instance* instance, GANTRY_byte_array* in,
                           GANTRY_byte_array** out)
{
    (void)instance;
    *out = copy_byte_array(in);
}

static void try_int16_set(GANTRY_instance* instance, GANTRY_int16_array* in,
                          GANTRY_int16_array** out)
{
    (void)instance;
    *out = copy_int16_array(in);
}

static GANTRY_string_array* copy_string_array(const GANTRY_string_array* from)
{
    if (from == NULL)
    {
        return NULL;
    }
    GANTRY_string_array* to = calloc(1, sizeof *to);
    if (to != NULL && (to->data = calloc(from->count, sizeof(char*))) != NULL)
    {
        to->count = from->count;
        for (unsigned long i = 0; i < from->count; ++i)
        {
            to->data[i] = copy_text(from->data[i]);
        }
    }
    return to;
}

static void try_string_array(GANTRY_instance* instance, GANTRY_string_array* in,
                             GANTRY_string_array** out)
{
    (void)instance;
    *out = copy_string_array(in);
}

static void try_array_array(GANTRY_instance* instance, GANTRY_uint32_array_array* in,
                            GANTRY_uint32_array_array** out)
{
    (void)instance;
    if (in == NULL)
    {
        return;
    }
    GANTRY_uint32_array_array* to = calloc(1, sizeof *to);
    if (to != NULL && (to->data = calloc(in->count, sizeof(GANTRY_uint32_array*))) != NULL)
    {
        to->count = in->count;
        for (unsigned long i = 0; i < in->count; ++i)
        {
            to->data[i] = copy_uint32_array(in->data[i]);
        }
    }
    *out = to;
}

static void tuple_one(GANTRY_instance* instance, unsigned short* first)
{
    (void)instance;
    *first = 1;
}

static void tuple_two(GANTRY_instance* instance, unsigned short* first, unsigned int* second)
{
    tuple_one(instance, first);
    *second = 2;
}

static void tuple_three(GANTRY_instance* instance, unsigned short* first, unsigned int* second,
                        unsigned long* third)
{
    tuple_two(instance, first, second);
    *third = 3;
}

/* Structs: a record, whose fields are released with it. An input is never null. */

static void try_struct(GANTRY_instance* instance, GANTRY_struct_ixs* in, GANTRY_struct_ixs** out)
{
    (void)instance;
    GANTRY_struct_ixs* to = calloc(1, sizeof *to);
    if (to != NULL)
    {
        to->field1 = in->field1;
        to->field2 = in->field2;
        to->field3 = copy_text(in->field3);
    }
    *out = to;
}

static void try_struct_array(GANTRY_instance* instance, GANTRY_struct_ananas* in,
                             GANTRY_struct_ananas** out)
{
    (void)instance;
    GANTRY_struct_ananas* to = calloc(1, sizeof *to);
    if (to != NULL)
    {
        to->field1 = copy_int16_array(in->field1);
        to->field2 = copy_int16_array(in->field2);
        to->field3 = copy_string_array(in->field3);
    }
    *out = to;
}

static const GANTRY_table__com_orvane_velmar_sample_gantrytest gantrytest = {
    .GetString = get_string,
    .SetString = set_string,
    .ChangeContainer = change_container,
    .GetStringDeferred = get_string,
    .SetStringDeferred = set_string,
    .ChangeContainerDeferred = change_container,
    .Deferred = get_changes,
    .Try_byte = try_byte,
    .Try_byte_D = try_byte,
    .Try_boolean = try_boolean,
    .Try_boolean_D = try_boolean,
    .Try_int16 = try_int16,
    .Try_int16_D = try_int16,
    .Try_uint16 = try_uint16,
    .Try_uint16_D = try_uint16,
    .Try_int32 = try_int32,
    .Try_int32_D = try_int32,
    .Try_uint32 = try_uint32,
    .Try_uint32_D = try_uint32,
    .Try_int64 = try_int64,
    .Try_int64_D = try_int64,
    .Try_uint64 = try_uint64,
    .Try_uint64_D = try_uint64,
    .Try_double = try_double,
    .Try_double_D = try_double,
    .Try_string = try_string,
    .Try_string_D = try_string,
    .Try_array = try_byte_array,
    .Try_array_D = try_byte_array,
    .TupleOne = tuple_one,
    .TupleOneD = tuple_one,
    .TupleTwo = tuple_two,
    .TupleTwoD = tuple_two,
    .TupleThree = tuple_three,
    .TupleThreeD = tuple_three,
    .TrySet = try_int16_set,
    .TrySetD = try_int16_set,
    .TryArrayArray = try_array_array,
    .TryArrayArrayD = try_array_array,
    .TryArrayString = try_string_array,
    .TryArrayStringD = try_string_array,
    .TryStruct = try_struct,
    .TryStructD = try_struct,
    .TryStructArray = try_struct_array,
    .TryStructArrayD = try_struct_array,
};

static const GANTRY_table__com_orvane_velmar_sample_async async = {
    .NoParam = get_string,
    .OneParam = try_string,
};

int main(int argc, char** argv)
{
    struct state state = {NULL, 0};

    read_options(argc, argv, "", 0);
    GANTRY_context_set_service(NULL, "com.orvane.velmar.sample");
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(NULL, &gantrytest, NULL, &state);
    GANTRY_instantiate__com_orvane_velmar_sample_async(NULL, &async, NULL, &state);
    GANTRY_dbus_loop(NULL);
    return EXIT_FAILURE;
}
