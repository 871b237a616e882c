#include "efi.hpp"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

namespace efi
{
namespace
{

// The vendor of the firmware's own variables, the boot order among them; other vendors may use such
// names too.
constexpr std::string_view global = "-8be4df61-93ca-11d2-aa0d-00e098032b8c";

sysfs::Directory variables(const sysfs::Directory& sys)
{
    return sys / "firmware/efi/efivars";
}

/** The variable's value; nothing if it is missing or has none. */
std::optional<std::vector<unsigned char>> variable(const sysfs::Directory& sys, std::string name)
{
    constexpr std::size_t attributes = 4;
    constexpr std::size_t most = 65536;
    auto content = sysfs::bytes(variables(sys) / name.append(global), most);
    if (content.size() <= attributes)
    {
        return std::nullopt;
    }
    content.erase(content.begin(), content.begin() + attributes);
    return content;
}

/** Takes a value apart from its front. Everything taken behind its end is nothing. */
class Reader
{
  public:
    explicit Reader(Bytes value) : rest(value)
    {
    }

    std::optional<Bytes> bytes(std::size_t count)
    {
        if (count > rest.size())
        {
            return std::nullopt;
        }
        const Bytes taken = rest.first(count);
        rest = rest.subspan(count);
        return taken;
    }

    std::optional<std::uint32_t> number(std::size_t width)
    {
        const auto digits = bytes(width);
        if (!digits)
        {
            return std::nullopt;
        }
        std::uint32_t value = 0;
        for (std::size_t index = 0; index < width; ++index)
        {
            value |= static_cast<std::uint32_t>((*digits)[index]) << 8U * index;
        }
        return value;
    }

    [[nodiscard]] Bytes remaining() const
    {
        return rest;
    }

  private:
    Bytes rest;
};

void append_utf8(std::string& text, std::uint32_t point)
{
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    const auto add_tail = [&](unsigned int shift) { add(0x80U | (point >> shift & 0x3FU)); };
    if (point < 0x80)
    {
        add(point);
    }
    else if (point < 0x800)
    {
        add(0xC0U | point >> 6U);
        add_tail(0);
    }
    else if (point < 0x10000)
    {
        add(0xE0U | point >> 12U);
        add_tail(6);
        add_tail(0);
    }
    else
    {
        add(0xF0U | point >> 18U);
        add_tail(12);
        add_tail(6);
        add_tail(0);
    }
}

/** Takes UTF-16 up to the null that ends it and gives it in UTF-8; nothing if none does. Half a
 *  surrogate pair becomes a replacement character. */
std::optional<std::string> take_text(Reader& reader)
{
    constexpr std::uint32_t replacement = 0xFFFD;
    const auto is_high = [](std::uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; };
    const auto is_low = [](std::uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; };

    std::string text;
    std::uint32_t high = 0;
    while (const auto unit = reader.number(2))
    {
        const bool pair = high != 0 && is_low(*unit);
        if (high != 0 && !pair)
        {
            append_utf8(text, replacement);
        }
        if (*unit == 0)
        {
            return text;
        }
        if (pair)
        {
            append_utf8(text, 0x10000 + ((high - 0xD800) << 10U) + (*unit - 0xDC00));
        }
        else if (!is_high(*unit))
        {
            append_utf8(text, is_low(*unit) ? replacement : *unit);
        }
        high = is_high(*unit) ? *unit : 0;
    }
    return std::nullopt;
}

std::string node_text(unsigned int type, unsigned int subtype, Bytes data)
{
    constexpr unsigned int media = 4;
    constexpr unsigned int file = 4;
    if (type == media && subtype == file)
    {
        Reader reader(data);
        if (auto name = take_text(reader))
        {
            return *std::move(name);
        }
    }
    return "Path(" + std::to_string(type) + ',' + std::to_string(subtype) + ',' +
           in_hexadecimal(data) + ')';
}

/** The device path in text, as far as its nodes are well-formed. */
std::string path_text(Bytes path)
{
    constexpr unsigned int end_of_path = 0x7F;
    constexpr std::size_t header = 4;
    std::string text;
    Reader reader(path);
    while (true)
    {
        const auto type = reader.number(1);
        const auto subtype = reader.number(1);
        const auto length = reader.number(2);
        if (!length || *length < header || *type == end_of_path)
        {
            return text;
        }
        const auto data = reader.bytes(*length - header);
        if (!data)
        {
            return text;
        }
        text += text.empty() ? "" : "/";
        text += node_text(*type, *subtype, *data);
    }
}

} // namespace

std::optional<LoadOption> parse_load_option(Bytes value)
{
    constexpr std::uint32_t active = 1;
    Reader reader(value);
    const auto attributes = reader.number(4);
    const auto path_length = reader.number(2);
    auto description = take_text(reader);
    const auto path = path_length ? reader.bytes(*path_length) : std::nullopt;
    if (!attributes || !description || !path)
    {
        return std::nullopt;
    }
    const Bytes data = reader.remaining();
    return LoadOption{(*attributes & active) != 0,
                      *std::move(description),
                      path_text(*path),
                      {data.begin(), data.end()}};
}

std::optional<std::vector<std::uint16_t>> boot_order(const sysfs::Directory& sys)
{
    const auto value = variable(sys, "BootOrder");
    if (!value || value->size() % 2 != 0)
    {
        return std::nullopt;
    }
    std::vector<std::uint16_t> order;
    Reader reader(*value);
    while (const auto number = reader.number(2))
    {
        order.push_back(static_cast<std::uint16_t>(*number));
    }
    return order;
}

std::optional<std::uint16_t> boot_current(const sysfs::Directory& sys)
{
    const auto value = variable(sys, "BootCurrent");
    if (!value || value->size() != 2)
    {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(*Reader(*value).number(2));
}

std::string option_name(std::uint16_t number)
{
    const unsigned char digits[] = {static_cast<unsigned char>(number >> 8U),
                                    static_cast<unsigned char>(number)};
    return "Boot" + in_hexadecimal(digits);
}

std::optional<LoadOption> load_option(const sysfs::Directory& sys, std::uint16_t number)
{
    const auto value = variable(sys, option_name(number));
    return value ? parse_load_option(*value) : std::nullopt;
}

std::vector<std::uint16_t> load_options(const sysfs::Directory& sys)
{
    std::vector<std::uint16_t> found;
    for (const auto& entry : sysfs::entries(variables(sys)))
    {
        const std::string file = entry.filename();
        const std::string_view digits = std::string_view(file).substr(
            std::min<std::size_t>(std::string_view("Boot").size(), file.size()));
        std::uint16_t number = 0;
        std::from_chars(digits.data(), digits.data() + std::min<std::size_t>(4, digits.size()),
                        number, 16);
        // Also tells BootOrder and other people's variables from load options.
        if (file == option_name(number).append(global))
        {
            found.push_back(number);
        }
    }
    return found;
}

std::string in_hexadecimal(Bytes bytes)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes)
    {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

} // namespace efi
