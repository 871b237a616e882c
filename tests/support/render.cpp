#include "support/render.hpp"

#include <array>
#include <charconv>
#include <cstdint>
#include <iomanip>
#include <map>
#include <sstream>
#include <string_view>

#include "support/check.hpp"

namespace support
{

namespace
{

template <typename T>
T read(sd_bus_message* message, char type)
{
    T value{};
    check(sd_bus_message_read_basic(message, type, &value));
    return value;
}

template <typename T>
std::string number(sd_bus_message* message, char type)
{
    std::array<char, 32> digits{};
    return {digits.data(), std::to_chars(digits.begin(), digits.end(), read<T>(message, type)).ptr};
}

std::string basic(sd_bus_message* message, char type)
{
    static const std::map<char, std::string (*)(sd_bus_message*, char)> numbers{
        {'y', number<std::uint8_t>}, {'n', number<std::int16_t>},  {'q', number<std::uint16_t>},
        {'i', number<std::int32_t>}, {'u', number<std::uint32_t>}, {'x', number<std::int64_t>},
        {'d', number<double>},       {'t', number<std::uint64_t>},
    };
    if (const auto found = numbers.find(type); found != numbers.end())
    {
        return found->second(message, type);
    }
    if (type == SD_BUS_TYPE_BOOLEAN)
    {
        return read<int>(message, type) == 0 ? "false" : "true";
    }
    std::ostringstream text;
    text << std::quoted(read<const char*>(message, type));
    return text.str();
}

// The values up to the end of the container that is entered, or of the body.
std::string sequence(sd_bus_message* message, std::string_view separator = ", ")
{
    std::string result;
    for (std::string_view before; check(sd_bus_message_at_end(message, 0)) == 0; before = separator)
    {
        result.append(before).append(render_next(message));
    }
    return result;
}

} // namespace

std::string render_next(sd_bus_message* message)
{
    char type = 0;
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(message, &type, &contents));
    if (contents == nullptr)
    {
        return basic(message, type);
    }
    check(sd_bus_message_enter_container(message, type, contents));
    std::string result = type == SD_BUS_TYPE_VARIANT ? std::string(contents) + ' ' : "";
    result += sequence(message, type == SD_BUS_TYPE_DICT_ENTRY ? ": " : ", ");
    check(sd_bus_message_exit_container(message));
    switch (type)
    {
    case SD_BUS_TYPE_ARRAY:
        return *contents == SD_BUS_TYPE_DICT_ENTRY_BEGIN ? '{' + result + '}' : '[' + result + ']';
    case SD_BUS_TYPE_STRUCT:
        return '(' + result + ')';
    case SD_BUS_TYPE_VARIANT:
        return '<' + result + '>';
    default:
        return result;
    }
}

std::string render(sd_bus_message* message)
{
    check(sd_bus_message_rewind(message, 1));
    const std::string signature = sd_bus_message_get_signature(message, 1);
    const std::string result = signature.empty() ? "" : signature + ' ' + sequence(message);
    check(sd_bus_message_rewind(message, 1));
    return result;
}

} // namespace support
