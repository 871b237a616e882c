#include "support/open_fds.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include <dirent.h>

namespace support
{

namespace
{

struct CloseDir
{
    void operator()(DIR* dir) const noexcept
    {
        closedir(dir);
    }
};

} // namespace

std::map<int, std::string> open_fds()
{
    // By hand, since the descriptor that reads the directory is in the directory.
    const std::unique_ptr<DIR, CloseDir> dir(opendir("/proc/self/fd"));
    if (dir == nullptr)
    {
        throw std::system_error(errno, std::generic_category(), "/proc/self/fd");
    }
    std::map<int, std::string> result;
    while (const dirent* const entry = readdir(dir.get()))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || std::stoi(name) == dirfd(dir.get()))
        {
            continue;
        }
        std::error_code ignored;
        result[std::stoi(name)] =
            std::filesystem::read_symlink("/proc/self/fd/" + name, ignored).string();
    }
    return result;
}

} // namespace support
