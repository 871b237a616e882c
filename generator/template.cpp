#include "template.hpp"

#include <algorithm>
#include <stdexcept>

namespace gantrygen
{
namespace
{

/** The words that a section sees. */
struct Scope
{
    const Words& words;
    const Scope* outer;
    Escape escape;

    [[nodiscard]] const Word& at(std::string_view name) const
    {
        if (const auto word = words.find(name); word != words.end())
        {
            return word->second;
        }
        if (outer == nullptr)
        {
            throw std::logic_error("a template uses " + std::string(name));
        }
        return outer->at(name);
    }

    [[nodiscard]] std::string text(std::string_view name) const
    {
        const auto& text = std::get<std::string>(at(name));
        return escape != nullptr ? escape(text) : text;
    }

    [[nodiscard]] bool has(std::string_view name) const
    {
        return std::visit([](const auto& value) { return !value.empty(); }, at(name));
    }
};

/** Cuts the text in front of the separator, or all of it, off `rest`. */
std::string_view cut(std::string_view& rest, char separator)
{
    const auto piece = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    return piece;
}

void add_line(std::string_view line, const Scope& scope, std::string& out)
{
    out += cut(line, '$');
    while (!line.empty())
    {
        const auto end = std::find_if_not(line.begin(), line.end(),
                                          [](char each) { return each >= 'a' && each <= 'z'; });
        const auto word = line.substr(0, static_cast<std::size_t>(end - line.begin()));
        line.remove_prefix(word.size());
        out += scope.text(word);
        out += cut(line, '$');
    }
    out += '\n';
}

/** Adds the lines up to the section's end to `out`, or skips them if that is null. Cuts them off
 *  `rest` together with the directive that ends them, which is the result. */
std::string_view add_section(std::string_view& rest, const Scope& scope, std::string* out)
{
    while (!rest.empty())
    {
        std::string_view line = cut(rest, '\n');
        if (!line.starts_with('%'))
        {
            if (out != nullptr)
            {
                add_line(line, scope, *out);
            }
            continue;
        }
        const std::string_view directive = cut(line, ' ');
        if (directive == "%if")
        {
            const bool kept = out != nullptr && scope.has(line);
            if (add_section(rest, scope, kept ? out : nullptr) == "%else")
            {
                add_section(rest, scope, kept ? nullptr : out);
            }
        }
        else if (directive == "%each")
        {
            const std::string_view body = rest;
            add_section(rest, scope, nullptr);
            if (out == nullptr)
            {
                continue;
            }
            for (const Words& member : std::get<1>(scope.at(line)))
            {
                std::string_view again = body;
                add_section(again, {member, &scope, scope.escape}, out);
            }
        }
        else
        {
            return directive;
        }
    }
    return {};
}

/** Adds a line of code. It is broken before column 120, if a comma or a comment allows that. */
void add_broken(std::string line, std::string& out)
{
    constexpr std::size_t columns = 120;
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    const bool is_comment = line.find_first_of("/*", indent) == indent;
    const std::string continued = std::string(indent, ' ') + (is_comment ? " * " : "    ");
    while (line.size() > columns && !line.starts_with('#'))
    {
        // A comma inside a string literal isn't one of the code's.
        const std::size_t end = is_comment ? columns : std::min(columns - 1, line.find('"'));
        const std::size_t space = line.rfind(is_comment ? " " : ", ", end) + (is_comment ? 0 : 1);
        if (space <= continued.size() || space >= line.size())
        {
            break;
        }
        out.append(line, 0, space) += '\n';
        line = continued + line.substr(space + 1);
    }
    out += line + '\n';
}

} // namespace

std::string render(std::string_view text, const Words& words, Escape escape)
{
    std::string out;
    text.remove_prefix(text.starts_with('\n') ? 1 : 0);
    add_section(text, {words, nullptr, escape}, &out);
    return out;
}

std::string render_code(std::string_view text, const Words& words)
{
    const std::string code = render(text, words);
    std::string out;
    for (std::string_view rest = code; !rest.empty();)
    {
        add_broken(std::string(cut(rest, '\n')), out);
    }
    return out;
}

} // namespace gantrygen
