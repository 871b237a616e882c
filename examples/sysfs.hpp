/*
 * Reads the machine's own description from sysfs, one value a file. A file that is missing or
 * doesn't hold what is asked for is normal: the value is then absent, and the property that would
 * have taken it keeps its initial value.
 */
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace sysfs
{

using Directory = std::filesystem::path;

/** The directory's entries by name, sorted; empty when it can't be read. */
std::vector<Directory> entries(const Directory& directory);

/** The file's text without its trailing newline. */
std::optional<std::string> text(const Directory& file);

/** The file's number, decimal or with 0x in front. */
std::optional<std::uint64_t> number(const Directory& file);

/** The file's number in hexadecimal digits alone. */
std::optional<std::uint64_t> hexadecimal(const Directory& file);

/** The file's number that leads its text, such as the 8.0 of "8.0 GT/s PCIe". */
std::optional<double> leading_number(const Directory& file);

/** The file's first bytes, as many as there are up to `most`. */
std::vector<unsigned char> bytes(const Directory& file, std::size_t most);

/** The last name in what the symbolic link points to: a device's driver, say. */
std::optional<std::string> link_name(const Directory& link);

/** Calls `setter` with the value, narrowed to `Type`, if there is one that fits. */
template <class Type, class Value, class Setter>
void put(const std::optional<Value>& value, Setter&& setter)
{
    if (!value)
    {
        return;
    }
    if constexpr (std::is_integral_v<Type>)
    {
        if (static_cast<Value>(static_cast<Type>(*value)) != *value)
        {
            return;
        }
    }
    setter(static_cast<Type>(*value));
}

} // namespace sysfs
