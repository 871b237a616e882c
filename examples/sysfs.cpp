#include "sysfs.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <system_error>

namespace sysfs
{

std::vector<Directory> entries(const Directory& directory)
{
    std::error_code error;
    std::vector<Directory> found;
    for (std::filesystem::directory_iterator entry{directory, error}, end; !error && entry != end;
         entry.increment(error))
    {
        found.push_back(entry->path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::optional<std::string> text(const Directory& file)
{
    std::ifstream stream{file};
    std::string line;
    if (!std::getline(stream, line))
    {
        return std::nullopt;
    }
    return line;
}

std::optional<std::uint64_t> number(const Directory& file)
{
    const auto line = text(file);
    if (!line)
    {
        return std::nullopt;
    }
    const bool hexadecimal = line->starts_with("0x");
    const char* begin = line->data() + (hexadecimal ? 2 : 0);
    const char* end = line->data() + line->size();
    std::uint64_t value = 0;
    const auto result = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
    if (result.ec != std::errc{} || result.ptr != end)
    {
        return std::nullopt;
    }
    return value;
}

std::optional<double> leading_number(const Directory& file)
{
    const auto line = text(file);
    double value = 0;
    if (!line ||
        std::from_chars(line->data(), line->data() + line->size(), value).ec != std::errc{})
    {
        return std::nullopt;
    }
    return value;
}

std::vector<unsigned char> bytes(const Directory& file, std::size_t most)
{
    std::ifstream stream{file, std::ios::binary};
    std::vector<char> read(most);
    stream.read(read.data(), static_cast<std::streamsize>(most));
    return {read.begin(), std::next(read.begin(), stream.gcount())};
}

} // namespace sysfs
