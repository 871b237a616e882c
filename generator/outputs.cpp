#include "outputs.hpp"

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace gantrygen
{

namespace fs = std::filesystem;

namespace
{

bool holds(const fs::path& path, const std::string& text)
{
    std::ostringstream held;
    held << std::ifstream(path, std::ios::binary).rdbuf();
    return held.str() == text;
}

} // namespace

void write_outputs(const fs::path& directory, const std::vector<Output>& outputs)
{
    fs::create_directories(directory);
    std::vector<fs::path> begun;
    try
    {
        for (const Output& output : outputs)
        {
            const fs::path path = directory / output.name;
            if (holds(path, output.text))
            {
                continue;
            }
            errno = 0;
            std::ofstream file(path, std::ios::binary | std::ios::trunc);
            if (file)
            {
                begun.push_back(path);
            }
            file << output.text << std::flush;
            if (!file)
            {
                throw fs::filesystem_error("cannot write", path,
                                           {errno == 0 ? EIO : errno, std::generic_category()});
            }
        }
    }
    catch (...)
    {
        for (const fs::path& path : begun)
        {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
        throw;
    }
}

} // namespace gantrygen
