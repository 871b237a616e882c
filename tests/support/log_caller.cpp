// A library that imports tallylog_printf, as the library under test does.
#include <tallylog.h>

__attribute__((visibility("default"))) void log_from_library(const char* what)
{
    tallylog_printf(2, 0x110, "EXCEPTION %s.%d.%s: %s\n", "log_caller", 7, "~BLT", what);
    tallylog_printf(9, 0x80, "%s.%d.%s: rv=%d, %lu", "log_caller", 8, "operator()", -5, 6UL);
    tallylog_printf(1, 0x110, "%s %d", "without location", 9);
}
