// The library's log as a test expects it: a line a message, "LEVEL FILE.FUNCTION: TEXT". An
// exception's has "EXCEPTION " behind the level; a line break in a text is "\n"; a message of
// another mask than the runtime core's, or without a line number, says so.
#pragma once

#include <string>

#include "support/captured_log.hpp"

// Takes what was logged since the last time, of the levels up to `level`.
inline std::string logged(int level = 9)
{
    constexpr int core_mask = 0x110;
    std::string lines;
    for (const auto& message : support::captured_log::messages())
    {
        if (message.level <= level)
        {
            lines += std::to_string(message.level) + ' ' + (message.exception ? "EXCEPTION " : "") +
                     (message.mask == core_mask ? "" : "(another mask) ") +
                     (message.line > 0 ? "" : "(no line) ") + message.file + '.' +
                     message.function + ": ";
            for (const char character : message.message)
            {
                lines += character == '\n' ? "\\n" : std::string(1, character);
            }
            lines += '\n';
        }
    }
    support::captured_log::clear();
    return lines;
}
