// The log as a test expects it: a line a message, "LEVEL FILE.FUNCTION: TEXT". An exception's has
// "EXCEPTION " behind the level; a line break in a text is "\n"; a message of another mask than the
// runtime core's, or without a line number, says so.
//
// Linking test_support_dep puts a tallylog_printf into the test program, which the dynamic linker
// prefers to libtallylog's: every message of every level and thread lands here, and none is
// printed. With TEST_LOG_ECHO in the environment each also goes to stderr, for a look at what a
// failing test did and for what is logged after main() has returned.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace support
{

// Takes what was logged since the last time, and keeps the levels up to `level`.
std::string logged(int level = 9);

// How many lines since then end like this.
std::size_t count_logged(std::string_view end);

} // namespace support
