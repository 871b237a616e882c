// A directory of a test's own: made on construction, gone with all it holds on destruction.
// Its path is kept short, since socket addresses must fit sockaddr_un.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace support
{

class TempDir
{
  public:
    // Throws std::system_error when no directory can be made.
    TempDir()
    {
        std::string name = "/tmp/gantry-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
        {
            throw std::system_error(errno, std::generic_category(), "mkdtemp");
        }
        path_ = name;
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept
    {
        return path_;
    }

  private:
    std::filesystem::path path_;
};

} // namespace support
