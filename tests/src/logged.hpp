// The library's log as a test expects it: a line a message, "LEVEL FILE.FUNCTION: TEXT". An
// exception's has "EXCEPTION " behind the level; a line break in a text is "\n"; a message of
// another mask than the runtime core's, or without a line number, says so.
#pragma once

#include <string>

#include "support/captured_log.hpp"

inline std::string shown(const support::LogMessage& message)
{
    constexpr int core_mask = 0x110;
    std::string line = std::to_string(message.level) + ' ';
    line += message.exception ? "EXCEPTION " : "";
    line += message.mask == core_mask ? "" : "(mask " + std::to_string(message.mask) + ") ";
    line += message.line > 0 ? "" : "(no line) ";
    line += message.file + '.' + message.function + ": ";
    for (const char character : message.message)
    {
        line += character == '\n' ? "\\n" : std::string(1, character);
    }
    return line + '\n';
}

// Takes what was logged since the last time, of the levels up to `level`.
inline std::string logged(int level = 9)
{
    std::string lines;
    for (const auto& message : support::captured_log::messages())
    {
        lines += message.level <= level ? shown(message) : "";
    }
    support::captured_log::clear();
    return lines;
}

// Of that, what was logged for generated code, and every exception.
inline std::string told()
{
    std::string lines;
    for (const auto& message : support::captured_log::messages())
    {
        const bool generated = message.file == "gantry_server" || message.file == "server";
        lines += generated || message.exception ? shown(message) : "";
    }
    support::captured_log::clear();
    return lines;
}
