#include "pieces.hpp"

#include <algorithm>
#include <utility>

namespace gantrygen
{
namespace
{

constexpr std::size_t npos = std::string_view::npos;

// What clang-format charges for a break: more the deeper its brackets, and something besides for
// where it is.
constexpr Cost per_depth = 20;
constexpr Cost per_template = 10;
constexpr Cost behind_comma = 1;
constexpr Cost behind_assignment = 2;
constexpr Cost behind_call_bracket = 19;
constexpr Cost behind_result_type = 60;
constexpr Cost behind_bracket = 100;
constexpr Cost in_front_of_name = 200;

bool closes(char letter)
{
    return letter == ')' || letter == '}' || letter == '>';
}

/** The line with what is no bracket, though it looks like one, made a letter. */
std::string without_false_brackets(std::string_view line)
{
    std::string plain(line);
    bool quoted = false;
    for (std::size_t at = 0; at < line.size(); ++at)
    {
        quoted ^= line[at] == '"' && (at == 0 || line[at - 1] != '\\');
        const bool arrow = line.substr(0, at + 1).ends_with("->");
        plain[at] = quoted || arrow ? 'x' : plain[at];
    }
    return plain;
}

/** Splits a line, without its indent, where clang-format may break it. */
class Splitter
{
  public:
    explicit Splitter(std::string_view text) : line(text), plain(without_false_brackets(text))
    {
        // A statement that calls has nothing but `return` in front of what it calls; whatever else
        // has a bracket behind its last word declares that word.
        const bool aliases = line.starts_with("using ");
        const std::size_t open = aliases ? npos : plain.find_first_of("({");
        const std::size_t space = outer_space(std::min(open, plain.size()));
        declares = space != npos && !line.starts_with("return ");
        if (aliases)
        {
            name_at = line.find(" = ") + 3;
            name_role = Piece::Role::value;
            name_cost = behind_assignment;
        }
        else if (declares)
        {
            name_at = space + 1;
            name_role = open == npos ? Piece::Role::name : Piece::Role::function;
            name_cost = open == npos ? in_front_of_name : behind_result_type;
        }
    }

    std::vector<Piece> split()
    {
        for (std::size_t at = 0; at < line.size(); ++at)
        {
            const char letter = plain[at];
            if (at == name_at && brackets.empty())
            {
                cut(at, name_role, name_cost);
            }
            if (opens(letter))
            {
                open_bracket(at);
            }
            else if (closes(letter))
            {
                close_bracket(letter);
            }
            else if (letter == ',' && !brackets.empty())
            {
                cut(at + 2, Piece::Role::item, behind_comma);
                items.back().push_back(pieces.size() - 1);
            }
            else if (letter == ' ' && at > start && names_parameter(at + 1))
            {
                cut(at + 1, Piece::Role::name, in_front_of_name);
            }
        }
        pieces.back().text = line.substr(start);
        return std::move(pieces);
    }

  private:
    /** The last space in front of `end` that no bracket holds. */
    [[nodiscard]] std::size_t outer_space(std::size_t end) const
    {
        int depth = 0;
        std::size_t found = npos;
        for (std::size_t at = 0; at < end; ++at)
        {
            depth += opens(plain[at]) ? 1 : 0;
            depth -= closes(plain[at]) ? 1 : 0;
            found = plain[at] == ' ' && depth == 0 ? at : found;
        }
        return found;
    }

    /** Whether a parameter's name starts at `at`, with or without a default value behind it. */
    [[nodiscard]] bool names_parameter(std::size_t at) const
    {
        if (!declares || brackets.empty() || brackets.back() != '(')
        {
            return false;
        }
        const std::size_t end = plain.find_first_of(" ,)<*&(", at);
        const auto rest = std::string_view(plain).substr(std::min(end, plain.size()));
        return rest.starts_with(',') || rest.starts_with(')') || rest.starts_with(" = ");
    }

    void open_bracket(std::size_t at)
    {
        const char bracket = plain[at];
        pieces.back().brackets += bracket;
        brackets += bracket;
        items.emplace_back();
        depths.push_back(depths.back() + (bracket == '<' ? per_template : 1));
        // Neither an empty bracket breaks nor the one around the name of a function pointer.
        if (!closes(plain[at + 1]) && !(declares && plain[at + 1] == '*'))
        {
            const bool of_call = bracket == '{' || (bracket == '(' && !declares);
            cut(at + 1, Piece::Role::first_item, of_call ? behind_call_bracket : behind_bracket);
        }
    }

    void close_bracket(char bracket)
    {
        pieces.back().brackets += bracket;
        for (const std::size_t item : items.back())
        {
            pieces[item].one_of_many = items.back().size() > 1;
        }
        brackets.pop_back();
        items.pop_back();
        depths.pop_back();
    }

    /** Ends a piece in front of `at`, where the next one starts. */
    void cut(std::size_t at, Piece::Role role, Cost cost)
    {
        const bool spaced = line[at - 1] == ' ';
        pieces.back().text = line.substr(start, at - (spaced ? 1 : 0) - start);
        pieces.push_back({{}, role, spaced, per_depth * depths.back() + cost});
        start = at;
    }

    std::string_view line;
    std::string plain;
    bool declares = false;

    /** The piece that starts with the line's name, or with an alias's type. */
    std::size_t name_at = npos;
    Piece::Role name_role{};
    Cost name_cost = 0;

    /** The open brackets, the pieces that start each one's items but the first, and what a break
     *  within each costs. */
    std::string brackets;
    std::vector<std::vector<std::size_t>> items;
    std::vector<Cost> depths{1};

    std::vector<Piece> pieces{Piece{{}, Piece::Role::item, false, 0}};
    std::size_t start = 0;
};

} // namespace

bool opens(char letter)
{
    return letter == '(' || letter == '{' || letter == '<';
}

std::vector<Piece> split_line(std::string_view line)
{
    return Splitter(line).split();
}

} // namespace gantrygen
