// A directory of a test's own: made on construction, gone with all it holds on destruction. What a
// crash leaves behind goes when the next test makes its first.
// Its path is kept short, since socket addresses must fit sockaddr_un.
#pragma once

#include <filesystem>

namespace support
{

class TempDir
{
  public:
    // Throws std::system_error when no directory can be made.
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir(TempDir&&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    TempDir& operator=(TempDir&&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const noexcept
    {
        return path_;
    }

  private:
    std::filesystem::path path_;
    int lock_ = -1; // the directory, locked for as long as it is in use
};

} // namespace support
