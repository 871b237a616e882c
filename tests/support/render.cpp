#include "support/render.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace support
{

namespace
{

int check(int result, const char* call)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), call);
    }
    return result;
}

template <typename T>
std::string number(T value)
{
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return {digits.data(), end};
}

std::string quoted(std::string_view text)
{
    constexpr std::string_view hex = "0123456789abcdef";
    std::string result = "\"";
    for (const char byte : text)
    {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\')
        {
            result += '\\';
            result += byte;
        }
        else if (byte == '\n')
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
            result += byte;
        }
    }
    return result += '"';
}

std::string basic(sd_bus_message* message, char type)
{
    // sd_bus_message_read_basic fills what the type says.
    union
    {
        std::uint8_t y;
        int b;
        std::int16_t n;
        std::uint16_t q;
        std::int32_t i;
        std::uint32_t u;
        std::int64_t x;
        std::uint64_t t;
        double d;
        const char* s;
    } value{};
    check(sd_bus_message_read_basic(message, type, &value), "sd_bus_message_read_basic");
    switch (type)
    {
    case SD_BUS_TYPE_BYTE:
        return number(value.y);
    case SD_BUS_TYPE_BOOLEAN:
        return value.b != 0 ? "true" : "false";
    case SD_BUS_TYPE_INT16:
        return number(value.n);
    case SD_BUS_TYPE_UINT16:
        return number(value.q);
    case SD_BUS_TYPE_INT32:
        return number(value.i);
    case SD_BUS_TYPE_UINT32:
        return number(value.u);
    case SD_BUS_TYPE_INT64:
        return number(value.x);
    case SD_BUS_TYPE_UINT64:
        return number(value.t);
    case SD_BUS_TYPE_DOUBLE:
        return number(value.d);
    case SD_BUS_TYPE_UNIX_FD:
        return "fd";
    default:
        return quoted(value.s);
    }
}

bool at_end(sd_bus_message* message)
{
    return check(sd_bus_message_at_end(message, 0), "sd_bus_message_at_end") > 0;
}

// The values up to the end of the container that is entered, or of the body.
std::string sequence(sd_bus_message* message, std::string_view separator = ", ")
{
    std::string result;
    for (std::string_view before; !at_end(message); before = separator)
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
