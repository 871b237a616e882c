#include "support/captured_log.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <ostream>
#include <utility>

#include <tallylog.h>
#include <unistd.h>

namespace support
{

namespace
{

struct Store
{
    std::mutex mutex;
    std::vector<LogMessage> messages;
    bool echo = std::getenv("TEST_LOG_ECHO") != nullptr;
};

// Never destroyed: a library's destructor logs after the program's own have run.
Store& store()
{
    static auto* const instance = new Store;
    return *instance;
}

std::string format_rest(const char* format, std::va_list values)
{
    std::va_list measured;
    va_copy(measured, values);
    const int size = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (size < 0)
    {
        return "(bad format)";
    }
    std::string result(static_cast<std::size_t>(size), '\0');
    std::vsnprintf(result.data(), result.size() + 1, format, values);
    return result;
}

void capture(LogMessage message, std::va_list values)
{
    constexpr std::string_view location = "%s.%d.%s: ";
    constexpr std::string_view exception = "EXCEPTION ";

    const char* format = message.format.c_str();
    message.thread = gettid();
    message.exception = message.format.starts_with(exception);
    if (message.exception)
    {
        format += exception.size();
    }
    if (std::string_view(format).starts_with(location))
    {
        format += location.size();
        message.file = va_arg(values, const char*);
        message.line = va_arg(values, int);
        message.function = va_arg(values, const char*);
    }
    else
    {
        message.exception = false;
        format = message.format.c_str();
    }
    message.message = format_rest(format, values);
    message.text = message.file.empty() ? message.message
                                        : (message.exception ? std::string(exception) : "") +
                                              message.file + '.' + std::to_string(message.line) +
                                              '.' + message.function + ": " + message.message;

    Store& log = store();
    const std::scoped_lock lock(log.mutex);
    if (log.echo)
    {
        std::fprintf(stderr, "[%d %#x] %s\n", message.level, static_cast<unsigned>(message.mask),
                     message.text.c_str());
    }
    log.messages.push_back(std::move(message));
}

bool matches(const LogMessage& entry, std::string_view message, std::string_view function)
{
    return entry.message == message && (function.empty() || entry.function == function);
}

} // namespace

std::ostream& operator<<(std::ostream& out, const LogMessage& message)
{
    return out << '[' << message.level << "] " << message.text;
}

namespace captured_log
{

std::vector<LogMessage> messages()
{
    const std::scoped_lock lock(store().mutex);
    return store().messages;
}

void clear()
{
    const std::scoped_lock lock(store().mutex);
    store().messages.clear();
}

std::vector<std::string> lines(int level)
{
    const std::scoped_lock lock(store().mutex);
    std::vector<std::string> result;
    for (const LogMessage& entry : store().messages)
    {
        if (entry.level == level)
        {
            result.push_back(entry.function + ": " + entry.message);
        }
    }
    return result;
}

std::optional<LogMessage> find(std::string_view message, std::string_view function)
{
    const std::scoped_lock lock(store().mutex);
    const auto& all = store().messages;
    const auto found = std::ranges::find_if(all, [&](const LogMessage& entry)
                                            { return matches(entry, message, function); });
    return found == all.end() ? std::nullopt : std::optional(*found);
}

std::size_t count(std::string_view message, std::string_view function)
{
    const std::scoped_lock lock(store().mutex);
    return static_cast<std::size_t>(
        std::ranges::count_if(store().messages, [&](const LogMessage& entry)
                              { return matches(entry, message, function); }));
}

} // namespace captured_log

} // namespace support

extern "C" int tallylog_printf(int level, int mask, const char* format, ...)
{
    support::LogMessage message;
    message.level = level;
    message.mask = mask;
    message.format = format;
    std::va_list values;
    va_start(values, format);
    support::capture(std::move(message), values);
    va_end(values);
    return 0;
}
