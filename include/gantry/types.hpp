/*
 * Moves the ten basic types between messages and C values, for C++ code that serves methods itself.
 *
 * GANTRY_<type>_parse_parameter reads the message's next value into *out. It throws SdBusError if
 * that value has another type or there is no further value. A string is a heap copy that the caller
 * releases with GANTRY_string_free. GANTRY_<type>_reply_append appends the value that its argument
 * points to. A null string, or a null pointer to a string, means the empty string; no other pointer
 * may be null. Appending throws nothing but std::bad_alloc: a string that no message can hold is
 * logged, and appended as the empty one.
 */
#pragma once

#include <gantry/types.h>

#include <sdbusplus/message.hpp>

#include <string>

#define GANTRY_DECLARE_TYPE(type, value)                                                           \
    GANTRY_API void GANTRY_##type##_parse_parameter(sdbusplus::message_t& message, value* out);    \
    GANTRY_API void GANTRY_##type##_reply_append(sdbusplus::message_t& message, value* appended);
GANTRY_FIXED_SIZE_TYPES(GANTRY_DECLARE_TYPE)
GANTRY_DECLARE_TYPE(string, char*)
#undef GANTRY_DECLARE_TYPE

/** Returns a strdup() copy of the text, which the caller owns. Throws std::bad_alloc. */
GANTRY_API char* GANTRY_string_cpp_to_c(std::string& text);

/** Returns a copy of the text; an empty one if the argument or what it points to is null. */
GANTRY_API std::string GANTRY_string_c_to_cpp(char** text);

/** Frees *text and sets it to null. Does nothing if `text` or *text is null. */
GANTRY_API void GANTRY_string_free(char** text);
