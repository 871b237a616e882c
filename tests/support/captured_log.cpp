#include "support/captured_log.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include <tallylog.h>

#include "support/check.hpp"

namespace
{

struct Line
{
    int level;
    std::string text;
};

std::mutex mutex;

// Never destroyed: a library's destructor logs after the program's own have run.
std::vector<Line>& lines()
{
    static auto* const instance = new std::vector<Line>;
    return *instance;
}

} // namespace

std::string support::logged(int level)
{
    const std::scoped_lock lock(mutex);
    std::string text;
    for (const Line& line : std::exchange(lines(), {}))
    {
        text += line.level <= level ? line.text : "";
    }
    return text;
}

std::size_t support::count_logged(std::string_view end)
{
    const std::scoped_lock lock(mutex);
    return static_cast<std::size_t>(std::ranges::count_if(
        lines(), [=](const Line& line) { return line.text.ends_with(std::string(end) + '\n'); }));
}

extern "C" int tallylog_printf(int level, int mask, const char* format, ...)
{
    constexpr std::string_view exception = "EXCEPTION ";
    constexpr std::string_view location = "%s.%d.%s: ";
    constexpr int core_mask = 0x110;

    Line line{level, std::to_string(level) + ' '};
    std::va_list values;
    va_start(values, format);
    std::string_view rest(format);
    if (rest.starts_with("EXCEPTION %s.%d.%s: "))
    {
        rest.remove_prefix(exception.size());
        line.text += exception;
    }
    line.text += mask == core_mask ? "" : "(mask " + std::to_string(mask) + ") ";
    if (rest.starts_with(location))
    {
        rest.remove_prefix(location.size());
        const std::string file = va_arg(values, const char*);
        line.text += va_arg(values, int) > 0 ? "" : "(no line) ";
        line.text += file + '.' + va_arg(values, const char*) + ": ";
    }
    char* message = nullptr;
    support::check(vasprintf(&message, rest.data(), values));
    va_end(values);
    for (const char character : std::string_view(message))
    {
        line.text += character == '\n' ? "\\n" : std::string(1, character);
    }
    line.text += '\n';
    std::free(message);

    const std::scoped_lock lock(mutex);
    static const bool echo = std::getenv("TEST_LOG_ECHO") != nullptr;
    if (echo)
    {
        std::fprintf(stderr, "[%d 0x%x] %s", level, static_cast<unsigned>(mask), line.text.c_str());
    }
    lines().push_back(std::move(line));
    return 0;
}
