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

// Takes what was logged since the last time and keeps what is wanted.
template <class Wanted>
std::string taken(const Wanted& wanted)
{
    std::string lines;
    for (const auto& message : support::captured_log::messages())
    {
        lines += wanted(message) ? shown(message) : "";
    }
    support::captured_log::clear();
    return lines;
}

// Of the levels up to `level`.
inline std::string logged(int level = 9)
{
    return taken([=](const auto& message) { return message.level <= level; });
}

// What was logged for generated code, and every exception.
inline std::string told()
{
    return taken(
        [](const auto& message) {
            return message.exception || message.file == "gantry_server" || message.file == "server";
        });
}
