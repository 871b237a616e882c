#include "initial.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>
#include <type_traits>

namespace gantrygen
{
namespace
{

template <class Number>
std::optional<std::string> literal(std::string_view text)
{
    Number number{};
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end)
    {
        return {};
    }
    // The lowest long has no literal: C++ would negate 9223372036854775808, which is no long.
    if (std::is_same_v<Number, std::int64_t> && number == std::numeric_limits<Number>::min())
    {
        return "-9223372036854775807 - 1";
    }
    std::array<char, 32> buffer;
    std::string digits(buffer.begin(), std::to_chars(buffer.begin(), buffer.end(), number).ptr);
    if constexpr (std::is_same_v<Number, double>)
    {
        if (!std::isfinite(number))
        {
            return {};
        }
        // Digits alone are an integer, which may be too large for any type.
        digits += digits.find_first_of(".e") == std::string::npos ? ".0" : "";
    }
    return digits + (std::is_same_v<Number, std::uint64_t> ? "U" : "");
}

std::string string_literal(std::string_view text)
{
    std::string literal = "\"";
    for (const char letter : text)
    {
        // Two question marks may begin what a compiler warns of as a trigraph.
        if (letter == '"' || letter == '\\' || letter == '?')
        {
            literal += '\\';
            literal += letter;
        }
        else if (static_cast<unsigned char>(letter) < ' ')
        {
            // An octal escape ends after three digits, so a digit that follows stays apart.
            literal += "\\0";
            literal += static_cast<char>('0' + letter / 8);
            literal += static_cast<char>('0' + letter % 8);
        }
        else
        {
            literal += letter;
        }
    }
    literal += '"';
    return literal;
}

} // namespace

std::optional<std::string> initial_literal(const Type& type, std::string_view text)
{
    switch (type.kind)
    {
    case Type::Kind::byte:
        return literal<std::uint8_t>(text);
    case Type::Kind::boolean:
        return text == "true" || text == "false" ? std::optional(std::string(text)) : std::nullopt;
    case Type::Kind::int16:
        return literal<std::int16_t>(text);
    case Type::Kind::uint16:
        return literal<std::uint16_t>(text);
    case Type::Kind::int32:
        return literal<std::int32_t>(text);
    case Type::Kind::uint32:
        return literal<std::uint32_t>(text);
    case Type::Kind::int64:
        return literal<std::int64_t>(text);
    case Type::Kind::uint64:
        return literal<std::uint64_t>(text);
    case Type::Kind::double_:
        return literal<double>(text);
    case Type::Kind::string:
        return string_literal(text);
    default:
        return {};
    }
}

} // namespace gantrygen
