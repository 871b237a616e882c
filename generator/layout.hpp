/*
 * Where a line of generated code breaks: just as the project's .clang-format would break it, so
 * that generated code reads as the rest does. Knows the few forms of line that the generator
 * writes.
 */
#pragma once

#include <string>
#include <string_view>

namespace gantrygen
{

/** The line, without its newline, broken to fit the page if it doesn't. */
std::string wrap(std::string_view line);

} // namespace gantrygen
