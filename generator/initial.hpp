/*
 * A property's initial value, from the text in the table to the literal in the code.
 */
#pragma once

#include "types.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace gantrygen
{

/** The C++ literal of a value of a basic type; nothing if the text is no such value. Numbers are
 *  decimal, booleans "true" or "false". */
std::optional<std::string> initial_literal(const Type& type, std::string_view text);

} // namespace gantrygen
