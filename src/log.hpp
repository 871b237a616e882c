/*
 * How the library logs: one call of the platform's tallylog_printf per message. The first three
 * values of its format are the place: a source file's stem, a line and a bare function name. Code
 * that logs for itself has its stem in a constant `source_stem`; code that does the work of
 * generated code logs for the place that called it.
 */
#pragma once

#include <tallylog.h>

namespace gantry
{

/** The place in the code that a message names. */
struct Place
{
    const char* stem;
    int line;
    const char* function;
};

namespace log
{

inline constexpr int fault = 1;
inline constexpr int failed = 2;
inline constexpr int trace = 9;

/** The module mask of everything but the server classes. */
inline constexpr int core_mask = 0x110;
/** The module mask of the server classes. */
inline constexpr int server_mask = 0x80;

} // namespace log
} // namespace gantry

// Macros, because the place is the line of the call, and because the compiler checks the values
// only against a format that is one literal.

#define GANTRY_HERE                                                                                \
    ::gantry::Place                                                                                \
    {                                                                                              \
        source_stem, __LINE__, static_cast<const char*>(__func__)                                  \
    }

#define GANTRY_LOG_AT(place, level, text, ...)                                                     \
    tallylog_printf(level, ::gantry::log::core_mask, "%s.%d.%s: " text, (place).stem,              \
                    (place).line, (place).function __VA_OPT__(, ) __VA_ARGS__)

#define GANTRY_LOG(level, text, ...)                                                               \
    GANTRY_LOG_AT(GANTRY_HERE, level, text __VA_OPT__(, ) __VA_ARGS__)

#define GANTRY_LOG_EXCEPTION_AT(place, what)                                                       \
    tallylog_printf(::gantry::log::failed, ::gantry::log::core_mask, "EXCEPTION %s.%d.%s: %s\n",   \
                    (place).stem, (place).line, (place).function, what)

#define GANTRY_LOG_EXCEPTION(what) GANTRY_LOG_EXCEPTION_AT(GANTRY_HERE, what)

/** The one message of a server class. */
#define GANTRY_LOG_DESTRUCTION()                                                                   \
    tallylog_printf(::gantry::log::trace, ::gantry::log::server_mask,                              \
                    "%s.%d.%s: destructor called, DAL true", source_stem, __LINE__,                \
                    static_cast<const char*>(__func__))
