// A stand-in for the platform's log service: it formats each message on the stack and writes it to
// standard error with one write(2). It has no lock, no allocation and no state but the threshold,
// so it can be called from anywhere, including a library's destructor.
#include "tallylog.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include <pthread.h>
#include <unistd.h>

namespace
{

constexpr int default_threshold = 2;
constexpr std::string_view ellipsis = "…";

int read_threshold() noexcept
{
    const char* const text = std::getenv("TALLYLOG_LEVEL");
    if (text == nullptr)
    {
        return default_threshold;
    }
    const char* const end = text + std::strlen(text);
    int value = 0;
    const auto [rest, error] = std::from_chars(text, end, value);
    return error == std::errc{} && rest == end ? value : default_threshold;
}

/** The syslog priority of a level. Levels 1, 2 and 9 are in use; the others are interpolated. */
char priority(int level) noexcept
{
    if (level <= 1)
    {
        return '3';
    }
    if (level == 2)
    {
        return '4';
    }
    if (level <= 4)
    {
        return '5';
    }
    return level < 9 ? '6' : '7';
}

bool is_control(char byte) noexcept
{
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f';
}

/** The last place up to `size` where the text can be cut without splitting a UTF-8 sequence. */
std::size_t cut_before(std::span<const char> text, std::size_t size) noexcept
{
    constexpr std::size_t longest_sequence = 4;
    std::size_t cut = size;
    while (cut > 0 && size - cut < longest_sequence &&
           (static_cast<unsigned char>(text[cut]) & 0xc0U) == 0x80U)
    {
        --cut;
    }
    return cut;
}

int write_all(std::span<const char> line) noexcept
{
    const auto size = static_cast<int>(line.size());
    while (!line.empty())
    {
        const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
        if (written >= 0)
        {
            line = line.subspan(static_cast<std::size_t>(written));
        }
        else if (errno != EINTR)
        {
            return -1;
        }
    }
    return size;
}

int log_line(int level, const char* format, std::va_list values) noexcept
{
    // A pipe takes up to PIPE_BUF bytes without interleaving those of other writers.
    std::array<char, PIPE_BUF> line; // NOLINT(*-member-init): filled below
    line[0] = '<';
    line[1] = priority(level);
    line[2] = '>';
    constexpr std::size_t prefix = 3;

    const std::span text = std::span(line).subspan(prefix);
    const int formatted = std::vsnprintf(text.data(), text.size(), format, values);
    if (formatted < 0)
    {
        return -1;
    }
    auto size = static_cast<std::size_t>(formatted);
    if (size >= text.size())
    {
        size = cut_before(text, text.size() - 1 - ellipsis.size());
        std::memcpy(&text[size], ellipsis.data(), ellipsis.size());
        size += ellipsis.size();
    }
    while (size > 0 && text[size - 1] == '\n')
    {
        --size;
    }
    for (char& byte : text.first(size))
    {
        if (is_control(byte))
        {
            byte = ' ';
        }
    }
    text[size] = '\n';
    return write_all(std::span(line).first(prefix + size + 1));
}

} // namespace

int tallylog_printf(int level, int /*mask*/, const char* format, ...)
{
    static const int threshold = read_threshold();
    if (level > threshold)
    {
        return 0;
    }
    const int saved_errno = errno;
    // A write is a cancellation point, and a cancellation couldn't unwind from here: it stays
    // pending.
    int cancel_state = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
    std::va_list values;
    va_start(values, format);
    const int result = log_line(level, format, values);
    va_end(values);
    pthread_setcancelstate(cancel_state, nullptr);
    errno = saved_errno;
    return result;
}
