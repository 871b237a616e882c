// What this process has open, from /proc/self/fd: a leaked connection or event loop shows as a
// descriptor that was not there before.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace support
{

// Descriptor to what it stands for, such as "socket:[4711]". Compare two of them with EXPECT_EQ.
std::map<int, std::string> open_fds();

inline std::size_t open_fd_count()
{
    return open_fds().size();
}

} // namespace support
