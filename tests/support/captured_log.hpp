// The log service as the test sees it. Linking test_support_dep puts a tallylog_printf into the
// test program, which the dynamic linker prefers to libtallylog's; every message of the code under
// test lands here, of every level and from every thread, and none is printed.
//
// With TEST_LOG_ECHO in the environment each message also goes to stderr, for a look at what a
// failing test did and for what is logged after main() has returned.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace support
{

struct LogMessage
{
    int level = 0;
    int mask = 0;
    bool exception = false; // the format began "EXCEPTION %s.%d.%s: "
    std::string file;       // the three values of the "%s.%d.%s: " prefix; empty and 0 without one
    int line = 0;
    std::string function;
    std::string message; // the text behind the prefix; all of it without one
};

namespace captured_log
{

// Everything logged since the last clear(), oldest first.
std::vector<LogMessage> messages();
void clear();

// How many messages have this text behind the prefix, of this function unless it is empty.
std::size_t count(std::string_view message, std::string_view function = {});

} // namespace captured_log

} // namespace support
