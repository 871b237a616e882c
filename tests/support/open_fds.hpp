// What this process has open, from /proc/self/fd: a leaked connection or event loop shows as a
// descriptor that was not there before.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

namespace support
{

// Descriptor to what it stands for, such as "socket:[4711]". The descriptor that reads the
// directory is among them, the same each time if none leaked.
inline std::map<std::string, std::string> open_fds()
{
    std::map<std::string, std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code ignored;
        result[entry.path()] = std::filesystem::read_symlink(entry.path(), ignored);
    }
    return result;
}

inline std::size_t open_fd_count()
{
    return open_fds().size();
}

} // namespace support
