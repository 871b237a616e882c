#include "names.hpp"

#include <algorithm>
#include <cstddef>

namespace gantrygen
{
namespace
{

constexpr std::size_t longest_name = 255;

// Only ASCII counts, whatever the locale is.
constexpr bool is_lower(char letter)
{
    return letter >= 'a' && letter <= 'z';
}

constexpr bool is_upper(char letter)
{
    return letter >= 'A' && letter <= 'Z';
}

constexpr bool is_digit(char letter)
{
    return letter >= '0' && letter <= '9';
}

constexpr char raised(char letter)
{
    return is_lower(letter) ? static_cast<char>(letter - 'a' + 'A') : letter;
}

constexpr char lowered(char letter)
{
    return is_upper(letter) ? static_cast<char>(letter - 'A' + 'a') : letter;
}

constexpr bool is_element(std::string_view text)
{
    return !text.empty() && !is_digit(text.front()) &&
           std::all_of(text.begin(), text.end(),
                       [](char letter) {
                           return is_lower(letter) || is_upper(letter) || is_digit(letter) ||
                                  letter == '_';
                       });
}

// The keywords of C and C++, the alternative tokens of C++, and what GNU C adds.
constexpr std::string_view reserved =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t"
    " char32_t char8_t class co_await co_return co_yield compl concept const const_cast"
    " consteval constexpr constinit continue decltype default delete do double dynamic_cast"
    " else enum explicit export extern false float for friend goto if inline int linux long"
    " mutable namespace new noexcept not not_eq nullptr operator or or_eq private protected"
    " public register reinterpret_cast requires restrict return short signed sizeof static"
    " static_assert static_cast struct switch template this thread_local throw true try"
    " typedef typeid typename typeof union unix unsigned using virtual void volatile wchar_t"
    " while xor xor_eq ";

} // namespace

bool is_interface_name(std::string_view name)
{
    const auto parts = elements(name);
    return name.size() <= longest_name && parts.size() >= 2 &&
           std::all_of(parts.begin(), parts.end(), is_element);
}

bool is_member_name(std::string_view name)
{
    return name.size() <= longest_name && is_element(name);
}

bool is_free_word(std::string_view name)
{
    const bool is_implementations =
        name.size() > 1 && name[0] == '_' && (name[1] == '_' || is_upper(name[1]));
    return !is_implementations && !is_among(name, reserved);
}

bool is_among(std::string_view name, std::string_view words)
{
    return words.find(' ' + std::string(name) + ' ') != std::string_view::npos;
}

std::string capitals(std::string_view name)
{
    std::string text{name};
    std::transform(text.begin(), text.end(), text.begin(), raised);
    return text;
}

std::string title(std::string_view member)
{
    std::string text;
    bool raise = true;
    for (const char letter : member)
    {
        if (letter == '_')
        {
            raise = true;
        }
        else
        {
            text += raise ? raised(letter) : letter;
            raise = false;
        }
    }
    return text;
}

std::string accessor(std::string_view member)
{
    std::string text = title(member);
    const auto run = std::find_if_not(text.begin(), text.end(), is_upper);
    const bool opens_next_word = run != text.end() && run - text.begin() > 1;
    std::transform(text.begin(), opens_next_word ? run - 1 : run, text.begin(), lowered);
    return text;
}

std::vector<std::string_view> elements(std::string_view interface)
{
    std::vector<std::string_view> found;
    for (std::size_t dot = 0; dot != std::string_view::npos;)
    {
        dot = interface.find('.');
        found.push_back(interface.substr(0, dot));
        interface.remove_prefix(dot == std::string_view::npos ? 0 : dot + 1);
    }
    return found;
}

std::string_view leaf(std::string_view interface)
{
    return interface.substr(interface.rfind('.') + 1);
}

std::string joined(std::string_view dotted, std::string_view separator)
{
    std::string text;
    for (const std::string_view element : elements(dotted))
    {
        text += text.empty() ? "" : separator;
        text += element;
    }
    return text;
}

std::string directory(std::string_view interface)
{
    return joined(interface, "/");
}

std::string class_name(std::string_view interface)
{
    return title(leaf(interface));
}

} // namespace gantrygen
