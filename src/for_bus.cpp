#include "for_bus.hpp"

#include <cstdint>
#include <cstring>

namespace gantry
{
namespace
{

/** One step through the text: its number of bytes, and whether they are a character that sd-bus
 *  accepts. */
struct Step
{
    std::size_t length;
    bool valid;
};

using Byte = unsigned char;

/**
 * The step at the start of `text`, which isn't empty. An invalid step has the bytes that could
 * begin a character (Unicode's maximal subpart), so that one broken character is one step.
 */
Step step(std::string_view text) noexcept
{
    const auto at = [text](std::size_t index) { return static_cast<Byte>(text[index]); };
    const Byte lead = at(0);
    if (lead < 0x80)
    {
        return {1, true};
    }

    // The lead byte determines the length and the range of the second byte, which excludes overlong
    // forms, surrogates and everything above U+10FFFF.
    std::size_t length = 0;
    Byte lowest = 0x80;
    Byte highest = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF)
    {
        length = 2;
    }
    else if (lead >= 0xE0 && lead <= 0xEF)
    {
        length = 3;
        lowest = lead == 0xE0 ? 0xA0 : lowest;
        highest = lead == 0xED ? 0x9F : highest;
    }
    else if (lead >= 0xF0 && lead <= 0xF4)
    {
        length = 4;
        lowest = lead == 0xF0 ? 0x90 : lowest;
        highest = lead == 0xF4 ? 0x8F : highest;
    }
    else
    {
        return {1, false};
    }

    std::uint32_t character = lead & (0x7FU >> length);
    for (std::size_t index = 1; index < length; ++index)
    {
        if (index == text.size() || at(index) < lowest || at(index) > highest)
        {
            return {index, false};
        }
        character = character << 6U | (at(index) & 0x3FU);
        lowest = 0x80;
        highest = 0xBF;
    }
    const bool noncharacter =
        (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFEU) == 0xFFFE;
    return {length, !noncharacter};
}

/** How many bytes at the start of the text are ASCII, eight at a time. */
std::size_t ascii_length(std::string_view text) noexcept
{
    std::size_t length = 0;
    const auto is_ascii_at = [text](std::size_t at)
    {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + at, sizeof word);
        return (word & 0x8080808080808080U) == 0;
    };
    constexpr std::size_t word_size = sizeof(std::uint64_t);
    if (text.size() >= word_size)
    {
        const std::size_t last = text.size() - word_size;
        while (length <= last && is_ascii_at(length))
        {
            length += word_size;
        }
        if (length > last && is_ascii_at(last))
        {
            return text.size();
        }
    }
    while (length < text.size() && static_cast<Byte>(text[length]) < 0x80)
    {
        ++length;
    }
    return length;
}

/** How many bytes at the start of the text are valid. */
std::size_t valid_length(std::string_view text) noexcept
{
    std::size_t length = 0;
    while (length += ascii_length(text.substr(length)), length < text.size())
    {
        const Step next = step(text.substr(length));
        if (!next.valid)
        {
            break;
        }
        length += next.length;
    }
    return length;
}

} // namespace

bool is_utf8(std::string_view text) noexcept
{
    return valid_length(text) == text.size();
}

std::string repaired_utf8(std::string_view text)
{
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string repaired;
    repaired.reserve(text.size() + replacement.size());
    for (;;)
    {
        const std::size_t valid = valid_length(text);
        repaired += text.substr(0, valid);
        text.remove_prefix(valid);
        if (text.empty())
        {
            return repaired;
        }
        repaired += replacement;
        text.remove_prefix(step(text).length);
    }
}

} // namespace gantry
