#include "support/temp_dir.hpp"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace support
{

namespace
{

namespace fs = std::filesystem;

constexpr std::string_view prefix = "gantry-test-";

int open_directory(const fs::path& path)
{
    return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// A program that crashes leaves its directory. Each live one is locked by its owner, so what can be
// locked is left over.
void remove_left_over(const fs::path& base)
{
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(base, ignored))
    {
        if (!entry.path().filename().string().starts_with(prefix))
        {
            continue;
        }
        const int fd = open_directory(entry.path());
        if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0)
        {
            fs::remove_all(entry.path(), ignored);
        }
        close(fd);
    }
}

// Locks a new directory; false when another program took it for left over just before.
bool lock(int fd)
{
    struct stat status
    {
    };
    return flock(fd, LOCK_SH) == 0 && fstat(fd, &status) == 0 && status.st_nlink > 0;
}

} // namespace

TempDir::TempDir()
{
    const fs::path base = "/tmp";
    [[maybe_unused]] static const bool once = (remove_left_over(base), true);
    for (;;)
    {
        std::string name = base / (std::string(prefix) + "XXXXXX");
        if (mkdtemp(name.data()) == nullptr)
        {
            throw std::system_error(errno, std::generic_category(), "mkdtemp");
        }
        path_ = name;
        lock_ = open_directory(path_);
        if (lock(lock_))
        {
            return;
        }
        close(lock_);
    }
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    close(lock_);
}

} // namespace support
