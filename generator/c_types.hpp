/*
 * Values as C hosts see them: a number is itself, a string is `char*`, an array or a set is a
 * pointer to one of the records of <gantry/records.h>, and a structure a pointer to a record that
 * the header of its interface declares. Dicts, variants and deeper nesting have no C form.
 */
#pragma once

#include "types.hpp"

#include <string>

namespace gantrygen
{

bool has_c_form(const Type& type);

/** The C type of a value: `unsigned char`, `char*`, `GANTRY_string_array*`, `GANTRY_struct_ixs*`.
 */
std::string c_type(const Type& type);

/** The name of a structure's record, and the macro that says that it is declared. */
std::string c_struct(const Type& structure);
std::string c_struct_guard(const Type& structure);

} // namespace gantrygen
