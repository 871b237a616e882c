#include "support/captured_log.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <utility>

#include <tallylog.h>

namespace support
{

namespace
{

struct Store
{
    std::mutex mutex;
    std::vector<LogMessage> messages;
};

// Never destroyed: a library's destructor logs after the program's own have run.
Store& store()
{
    static auto* const instance = new Store;
    return *instance;
}

std::string formatted(const char* format, std::va_list values)
{
    char* text = nullptr;
    const int size = vasprintf(&text, format, values);
    std::string result = size < 0 ? "(bad format)" : text;
    std::free(size < 0 ? nullptr : text);
    return result;
}

} // namespace

std::ostream& operator<<(std::ostream& out, const LogMessage& message)
{
    out << '[' << message.level << " 0x" << std::hex << message.mask << std::dec << "] ";
    if (!message.file.empty())
    {
        out << (message.exception ? "EXCEPTION " : "") << message.file << '.' << message.line << '.'
            << message.function << ": ";
    }
    return out << message.message;
}

std::vector<LogMessage> captured_log::messages()
{
    const std::scoped_lock lock(store().mutex);
    return store().messages;
}

void captured_log::clear()
{
    const std::scoped_lock lock(store().mutex);
    store().messages.clear();
}

std::vector<std::string> captured_log::lines(int level)
{
    std::vector<std::string> result;
    for (const LogMessage& entry : messages())
    {
        if (entry.level == level)
        {
            result.push_back(entry.function + ": " + entry.message);
        }
    }
    return result;
}

std::size_t captured_log::count(std::string_view message, std::string_view function)
{
    const auto all = messages();
    const auto matches = [&](const LogMessage& entry)
    { return entry.message == message && (function.empty() || entry.function == function); };
    return static_cast<std::size_t>(std::ranges::count_if(all, matches));
}

} // namespace support

extern "C" int tallylog_printf(int level, int mask, const char* format, ...)
{
    constexpr std::string_view exception = "EXCEPTION ";
    constexpr std::string_view location = "%s.%d.%s: ";

    support::LogMessage message;
    message.level = level;
    message.mask = mask;
    std::va_list values;
    va_start(values, format);
    std::string_view rest(format);
    message.exception = rest.starts_with("EXCEPTION %s.%d.%s: ");
    rest.remove_prefix(message.exception ? exception.size() : 0);
    if (rest.starts_with(location))
    {
        rest.remove_prefix(location.size());
        message.file = va_arg(values, const char*);
        message.line = va_arg(values, int);
        message.function = va_arg(values, const char*);
    }
    message.message = support::formatted(rest.data(), values);
    va_end(values);

    support::Store& log = support::store();
    const std::scoped_lock lock(log.mutex);
    static const bool echo = std::getenv("TEST_LOG_ECHO") != nullptr;
    if (echo)
    {
        std::cerr << message << '\n';
    }
    log.messages.push_back(std::move(message));
    return 0;
}
