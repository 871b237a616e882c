#include "support/captured_log.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
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

} // namespace

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

std::size_t captured_log::count(std::string_view message, std::string_view function)
{
    std::size_t found = 0;
    for (const LogMessage& entry : messages())
    {
        found +=
            entry.message == message && (function.empty() || entry.function == function) ? 1 : 0;
    }
    return found;
}

} // namespace support

extern "C" int tallylog_printf(int level, int mask, const char* format, ...)
{
    constexpr std::string_view exception = "EXCEPTION ";
    constexpr std::string_view location = "%s.%d.%s: ";

    support::LogMessage message;
    message.level = level;
    message.mask = mask;
    std::string_view rest(format);
    if (rest.starts_with("EXCEPTION %s.%d.%s: "))
    {
        message.exception = true;
        rest.remove_prefix(exception.size());
    }
    std::va_list values;
    va_start(values, format);
    if (rest.starts_with(location))
    {
        rest.remove_prefix(location.size());
        message.file = va_arg(values, const char*);
        message.line = va_arg(values, int);
        message.function = va_arg(values, const char*);
    }
    char* text = nullptr;
    const bool good = vasprintf(&text, rest.data(), values) >= 0;
    message.message = good ? text : "(bad format)";
    std::free(good ? text : nullptr);
    va_end(values);

    const std::scoped_lock lock(support::store().mutex);
    static const bool echo = std::getenv("TEST_LOG_ECHO") != nullptr;
    if (echo)
    {
        std::fprintf(stderr, "[%d 0x%x] %s%s.%d.%s: %s\n", level, static_cast<unsigned>(mask),
                     message.exception ? "EXCEPTION " : "", message.file.c_str(), message.line,
                     message.function.c_str(), message.message.c_str());
    }
    support::store().messages.push_back(std::move(message));
    return 0;
}
