#include "support/render.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "support/check.hpp"

namespace support
{

namespace
{

std::string quoted(std::string_view text)
{
    constexpr std::string_view hex = "0123456789abcdef";
    std::string result = "\"";
    for (const char byte : text)
    {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '\n')
        {
            result += "\\n";
        }
        else if (value < 0x20U || value == 0x7fU)
        {
            result += "\\x";
            result += hex[value >> 4U];
            result += hex[value & 0xfU];
        }
        else
        {
            result += byte == '"' || byte == '\\' ? "\\" : "";
            result += byte;
        }
    }
    return result += '"';
}

template <typename T>
std::string number(sd_bus_message* message, char type)
{
    T value{};
    check(sd_bus_message_read_basic(message, type, &value), "sd_bus_message_read_basic");
    std::array<char, 32> digits{};
    return {digits.data(), std::to_chars(digits.begin(), digits.end(), value).ptr};
}

std::string basic(sd_bus_message* message, char type)
{
    switch (type)
    {
    case SD_BUS_TYPE_BYTE:
        return number<std::uint8_t>(message, type);
    case SD_BUS_TYPE_BOOLEAN:
        return number<int>(message, type) == "0" ? "false" : "true";
    case SD_BUS_TYPE_INT16:
        return number<std::int16_t>(message, type);
    case SD_BUS_TYPE_UINT16:
        return number<std::uint16_t>(message, type);
    case SD_BUS_TYPE_INT32:
        return number<std::int32_t>(message, type);
    case SD_BUS_TYPE_UINT32:
        return number<std::uint32_t>(message, type);
    case SD_BUS_TYPE_INT64:
        return number<std::int64_t>(message, type);
    case SD_BUS_TYPE_UINT64:
        return number<std::uint64_t>(message, type);
    case SD_BUS_TYPE_DOUBLE:
        return number<double>(message, type);
    default:
        const char* text = nullptr;
        check(sd_bus_message_read_basic(message, type, &text), "sd_bus_message_read_basic");
        return quoted(text);
    }
}

// The values up to the end of the container that is entered, or of the body.
std::string sequence(sd_bus_message* message, std::string_view separator = ", ")
{
    std::string result;
    for (std::string_view before;
         check(sd_bus_message_at_end(message, 0), "sd_bus_message_at_end") == 0; before = separator)
    {
        result += before;
        result += render_next(message);
    }
    return result;
}

std::string container(sd_bus_message* message, char type, const char* contents, bool unwrap_variant)
{
    check(sd_bus_message_enter_container(message, type, contents),
          "sd_bus_message_enter_container");
    std::string result;
    switch (type)
    {
    case SD_BUS_TYPE_ARRAY:
        result = *contents == SD_BUS_TYPE_DICT_ENTRY_BEGIN ? '{' + sequence(message) + '}'
                                                           : '[' + sequence(message) + ']';
        break;
    case SD_BUS_TYPE_STRUCT:
        result = '(' + sequence(message) + ')';
        break;
    case SD_BUS_TYPE_DICT_ENTRY:
        result = sequence(message, ": ");
        break;
    default:
        result = std::string(contents) + ' ' + sequence(message);
        if (!unwrap_variant)
        {
            result = '<' + result + '>';
        }
        break;
    }
    check(sd_bus_message_exit_container(message), "sd_bus_message_exit_container");
    return result;
}

} // namespace

std::string render_next(sd_bus_message* message, bool unwrap_variant)
{
    char type = 0;
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(message, &type, &contents), "sd_bus_message_peek_type");
    return contents == nullptr ? basic(message, type)
                               : container(message, type, contents, unwrap_variant);
}

std::string render(sd_bus_message* message)
{
    check(sd_bus_message_rewind(message, 1), "sd_bus_message_rewind");
    const std::string_view signature = sd_bus_message_get_signature(message, 1);
    if (signature.empty())
    {
        return {};
    }
    std::string result(signature);
    result += ' ';
    result += sequence(message);
    check(sd_bus_message_rewind(message, 1), "sd_bus_message_rewind");
    return result;
}

} // namespace support
