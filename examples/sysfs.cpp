#include "sysfs.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>

namespace sysfs
{
namespace
{

std::optional<std::uint64_t> whole(std::string_view digits, int base)
{
    const char* const end = digits.data() + digits.size();
    std::uint64_t value = 0;
    const auto result = std::from_chars(digits.data(), end, value, base);
    if (result.ec != std::errc{} || result.ptr != end)
    {
        return std::nullopt;
    }
    return value;
}

} // namespace

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
    return line->starts_with("0x") ? whole(std::string_view(*line).substr(2), 16)
                                   : whole(*line, 10);
}

std::optional<std::uint64_t> hexadecimal(const Directory& file)
{
    const auto line = text(file);
    return line ? whole(*line, 16) : std::nullopt;
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

std::optional<std::string> link_name(const Directory& link)
{
    std::error_code error;
    const auto target = std::filesystem::read_symlink(link, error);
    return error ? std::nullopt : std::optional{target.filename().string()};
}

} // namespace sysfs
