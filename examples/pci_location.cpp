#include "pci_location.hpp"

#include <array>
#include <charconv>
#include <string_view>

std::optional<PciLocation> pci_location(const std::string& address)
{
    constexpr std::string_view behind = "::.";
    std::array<unsigned int, 4> parts{};
    const char* at = address.data();
    const char* const end = at + address.size();
    for (std::size_t index = 0; index < parts.size(); ++index)
    {
        const auto result = std::from_chars(at, end, parts[index], 16);
        const bool last = index == behind.size();
        const bool ends_well =
            last ? result.ptr == end : result.ptr != end && *result.ptr == behind[index];
        if (result.ec != std::errc{} || !ends_well)
        {
            return std::nullopt;
        }
        at = result.ptr + (last ? 0 : 1);
    }
    return PciLocation{parts[0], parts[1], parts[2], parts[3]};
}
