/*
 * What clang-format sees in a line of generated code: pieces that never break, what a break between
 * two of them costs, and the brackets that open and close on the way.
 */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

/** Of a layout. The dearer a break, the worse it reads. */
using Cost = std::size_t;

/** A stretch of a line that never breaks. */
struct Piece
{
    /** How a piece stands to the one in front of it. */
    enum class Role
    {
        first_item, // of a bracket
        item,
        function, // behind its result type
        name,     // behind its type
        value,    // behind a `=`
    };

    std::string_view text;
    Role role;
    bool spaced;

    /** Of a break in front of it. */
    Cost cost;

    /** An item with more than one other in its bracket. */
    bool one_of_many = false;

    /** Its brackets alone. */
    std::string brackets = {};
};

bool opens(char bracket);

/** The pieces of a line without its indent. Their texts refer to the line's. */
std::vector<Piece> split_line(std::string_view line);

} // namespace gantrygen
