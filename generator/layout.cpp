#include "layout.hpp"

#include "pieces.hpp"

#include <algorithm>
#include <cstddef>
#include <queue>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace gantrygen
{
namespace
{

constexpr std::size_t page_width = 100;
constexpr std::size_t continuation = 4;

// The first break within a bracket costs extra, and text behind the page's edge is the last resort.
constexpr Cost first_break = 15;
constexpr Cost per_excess = 1'000'000;

// A result type as short as this stays with its function.
constexpr std::size_t short_result = 6;

/** One open bracket; the line itself is the outermost. */
struct Level
{
    /** Where its items start on lines of their own. */
    std::size_t indent;

    /** Where the line or the item started that its brackets hang from. */
    std::size_t hanging_from;

    /** Whether breaks are ruled out: within the level, and within what it holds now. */
    bool whole = false;
    bool holds_whole = false;

    bool broken = false;

    /** Whether what follows a broken item must open a line. */
    bool breaks_items = false;

    bool operator<(const Level& other) const
    {
        const auto fields = [](const Level& level)
        {
            return std::tie(level.indent, level.hanging_from, level.whole, level.holds_whole,
                            level.broken, level.breaks_items);
        };
        return fields(*this) < fields(other);
    }
};

/** Some pieces laid out. */
struct Layout
{
    Cost cost = 0;
    std::string text;
    std::size_t next = 0;
    std::size_t column;
    std::vector<Level> levels;

    void add(const Piece& piece, bool on_new_line)
    {
        if (on_new_line)
        {
            break_in_front_of(piece);
        }
        else if (next > 0)
        {
            text += piece.spaced ? " " : "";
            column += piece.spaced ? 1 : 0;
            if (piece.role == Piece::Role::first_item)
            {
                levels.back().indent = column;
            }
            if (piece.role == Piece::Role::item)
            {
                // One of many items that starts within a line also ends there.
                levels.back().hanging_from = column;
                levels.back().holds_whole = piece.one_of_many;
            }
        }
        for (const char bracket : piece.brackets)
        {
            if (opens(bracket))
            {
                const Level& outer = levels.back();
                const std::size_t base = outer.hanging_from;
                levels.push_back({base + continuation, base, outer.whole || outer.holds_whole});
            }
            else
            {
                levels.pop_back();
            }
        }
        text += piece.text;
        column += piece.text.size();
        cost += per_excess * (std::max(column, page_width) - page_width);
        ++next;
    }

    [[nodiscard]] bool must_break(const Piece& piece) const
    {
        return levels.back().breaks_items && piece.role != Piece::Role::first_item;
    }

    [[nodiscard]] bool can_break(const Piece& piece) const
    {
        return !levels.back().whole &&
               (piece.role != Piece::Role::function || column >= short_result);
    }

  private:
    void break_in_front_of(const Piece& piece)
    {
        Level& level = levels.back();
        column = level.indent;
        if (piece.role == Piece::Role::name || piece.role == Piece::Role::value)
        {
            column += continuation;
        }
        text += '\n' + std::string(column, ' ');
        cost += piece.cost + (level.broken ? 0 : first_break);
        level.broken = true;
        level.hanging_from = column;
        level.holds_whole = false;
        level.breaks_items &= piece.role == Piece::Role::name && levels.size() > 1;
        std::for_each(levels.begin(), levels.end() - 1,
                      [](Level& outer) { outer.breaks_items = true; });
    }
};

/** The cheapest layout of the pieces; of several, the one whose breaks come last. */
std::string cheapest(const std::vector<Piece>& pieces, std::size_t indent)
{
    struct Entry
    {
        Layout layout;
        std::size_t order;

        bool operator<(const Entry& other) const
        {
            return std::pair(layout.cost, order) > std::pair(other.layout.cost, other.order);
        }
    };
    std::priority_queue<Entry> open;
    std::size_t order = 0;
    std::set<std::tuple<std::size_t, std::size_t, std::vector<Level>>> seen;

    Layout start{0, std::string(indent, ' '), 0, indent, {{indent, indent}}};
    start.add(pieces.front(), false);
    open.push({std::move(start), order++});
    while (open.top().layout.next < pieces.size())
    {
        const Layout layout = open.top().layout;
        open.pop();
        if (!seen.emplace(layout.next, layout.column, layout.levels).second)
        {
            continue;
        }
        const Piece& piece = pieces[layout.next];
        for (const bool on_new_line : {false, true})
        {
            if (on_new_line ? layout.can_break(piece) : !layout.must_break(piece))
            {
                Layout longer = layout;
                longer.add(piece, on_new_line);
                open.push({std::move(longer), order++});
            }
        }
    }
    return open.top().layout.text;
}

/** A comment's words, as many on each line as fit. Lines but the first start behind `margin`. */
std::string wrap_comment(std::string_view line, std::string_view margin)
{
    std::string text(line.substr(0, line.find_first_not_of(' ')));
    std::size_t column = text.size();
    line.remove_prefix(column);
    bool opens_line = true;
    while (!line.empty())
    {
        // What closes the comment stays with its last word.
        std::size_t length = std::min(line.find(' '), line.size());
        length = line.substr(length) == " */" ? line.size() : length;
        if (!opens_line && column + 1 + length > page_width)
        {
            text += '\n';
            text += margin;
            column = margin.size();
        }
        else if (!opens_line)
        {
            text += ' ';
            ++column;
        }
        opens_line = false;
        text += line.substr(0, length);
        column += length;
        line.remove_prefix(std::min(length + 1, line.size()));
    }
    return text;
}

} // namespace

std::string wrap(std::string_view line)
{
    if (line.size() <= page_width)
    {
        return std::string(line);
    }
    if (line.starts_with("// "))
    {
        return wrap_comment(line, "// ");
    }
    if (line.starts_with("/* ") || line.starts_with(" * "))
    {
        return wrap_comment(line, " * ");
    }

    const std::size_t indent = line.find_first_not_of(' ');
    if (const std::size_t base = line.find(" : public "); base != std::string_view::npos)
    {
        return std::string(line.substr(0, base)) + '\n' + std::string(indent + continuation, ' ') +
               std::string(line.substr(base + 1));
    }
    return cheapest(split_line(line.substr(indent)), indent);
}

} // namespace gantrygen
