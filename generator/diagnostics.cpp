#include "diagnostics.hpp"

#include <algorithm>

namespace gantrygen
{
namespace
{

std::string diagnostic(std::string_view file, int line, std::string_view message)
{
    std::string text = std::string(file) + ':' + std::to_string(line) + ": error: ";
    text += message;

    // A text quoted from the table may contain newlines, but a diagnostic is one line.
    std::replace_if(
        text.begin(), text.end(), [](unsigned char letter) { return letter < ' '; }, '?');
    return text;
}

} // namespace

TableError::TableError(std::string_view file, int line, std::string_view message) :
    std::runtime_error(diagnostic(file, line, message))
{
}

std::string quote(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

} // namespace gantrygen
