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
std::optional<Number> whole_number(std::string_view text)
{
    Number number{};
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end)
    {
        return {};
    }
    return number;
}

template <class Integer>
std::optional<std::string> integer_literal(std::string_view text, std::string_view suffix)
{
    const auto number = whole_number<Integer>(text);
    if (!number)
    {
        return {};
    }
    // The lowest long has no literal: C++ would negate 9223372036854775808, which is no long.
    if (std::is_same_v<Integer, std::int64_t> && *number == std::numeric_limits<Integer>::min())
    {
        return "-9223372036854775807L - 1";
    }
    return std::to_string(*number).append(suffix);
}

std::optional<std::string> double_literal(std::string_view text)
{
    const auto number = whole_number<double>(text);
    if (!number || !std::isfinite(*number))
    {
        return {};
    }
    std::array<char, 32> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), *number);
    std::string literal(digits.data(), end);
    if (literal.find_first_of(".e") == std::string::npos)
    {
        literal += ".0";
    }
    return literal;
}

std::string string_literal(std::string_view text)
{
    std::string literal = "\"";
    for (const char letter : text)
    {
        if (letter == '"' || letter == '\\')
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
        return integer_literal<std::uint8_t>(text, "");
    case Type::Kind::boolean:
        return text == "true" || text == "false" ? std::optional(std::string(text)) : std::nullopt;
    case Type::Kind::int16:
        return integer_literal<std::int16_t>(text, "");
    case Type::Kind::uint16:
        return integer_literal<std::uint16_t>(text, "");
    case Type::Kind::int32:
        return integer_literal<std::int32_t>(text, "");
    case Type::Kind::uint32:
        return integer_literal<std::uint32_t>(text, "U");
    case Type::Kind::int64:
        return integer_literal<std::int64_t>(text, "L");
    case Type::Kind::uint64:
        return integer_literal<std::uint64_t>(text, "UL");
    case Type::Kind::double_:
        return double_literal(text);
    case Type::Kind::string:
        return string_literal(text);
    default:
        return {};
    }
}

} // namespace gantrygen
