// A directory of a test's own: made on construction, gone with all it holds on destruction.
// Its path is kept short, since socket addresses must fit sockaddr_un.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support
{

struct TempDir
{
    TempDir()
    {
        std::string name = "/tmp/gantry-XXXXXX";
        path = mkdtemp(name.data()) != nullptr ? name : throw std::runtime_error(name);
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(TempDir&&) = delete;

    std::filesystem::path path;
};

} // namespace support
