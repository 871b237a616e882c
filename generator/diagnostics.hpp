/*
 * How the generator refuses a table: the first fault ends the run. Its message has the form of a
 * compiler's, so that an editor can jump to the line.
 */
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace gantrygen
{

/** A fault in a table. what() is the whole diagnostic, `file:line: error: message`. */
class TableError : public std::runtime_error
{
  public:
    TableError(std::string_view file, int line, std::string_view message);
};

/** A text of the table as a message shows it. */
std::string quote(std::string_view text);

} // namespace gantrygen
