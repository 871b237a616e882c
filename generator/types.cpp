#include "types.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <utility>

namespace gantrygen
{
namespace
{

using Kind = Type::Kind;

// What D-Bus allows of a signature: its length, and how deep arrays, structures and all
// containers taken together may nest.
constexpr std::size_t longest_signature = 255;
constexpr int deepest_array = 32;
constexpr int deepest_structure = 32;
constexpr int deepest_container = 64;

/** One kind of type: its letter in a signature (0 for the bracketed ones) and its name in C++. A
 *  kind's place in the table is its place in a PropertyVariant. */
struct KindNames
{
    Kind kind;
    char letter;
    std::string_view cpp;
};

constexpr std::array kinds{
    KindNames{Kind::boolean, 'b', "bool"},        KindNames{Kind::double_, 'd', "double"},
    KindNames{Kind::int16, 'n', "short"},         KindNames{Kind::int32, 'i', "int"},
    KindNames{Kind::int64, 'x', "long"},          KindNames{Kind::dict, 0, "std::map"},
    KindNames{Kind::set, 'a', "std::set"},        KindNames{Kind::string, 's', "std::string"},
    KindNames{Kind::structure, 0, "std::tuple"},  KindNames{Kind::variant, 'v', "std::variant"},
    KindNames{Kind::array, 'a', "std::vector"},   KindNames{Kind::uint16, 'q', "unsigned short"},
    KindNames{Kind::uint32, 'u', "unsigned int"}, KindNames{Kind::uint64, 't', "unsigned long"},
    KindNames{Kind::byte, 'y', "unsigned char"},
};

constexpr auto names_of(Kind kind)
{
    return std::find_if(kinds.begin(), kinds.end(),
                        [kind](const KindNames& names) { return names.kind == kind; });
}

constexpr bool is_basic_kind(Kind kind)
{
    switch (kind)
    {
    case Kind::array:
    case Kind::set:
    case Kind::dict:
    case Kind::structure:
    case Kind::variant:
        return false;
    default:
        return true;
    }
}

/** How deep the type being read lies. */
struct Depth
{
    int array = 0;
    int structure = 0;
    int container = 0;

    Depth in_array() const
    {
        return checked({array + 1, structure, container + 1});
    }

    Depth in_structure() const
    {
        return checked({array, structure + 1, container + 1});
    }

    // A variant's value carries a signature of its own, which is counted afresh.
    Depth in_variant() const
    {
        return checked({0, 0, container + 1});
    }

  private:
    static Depth checked(Depth depth)
    {
        if (depth.array > deepest_array || depth.structure > deepest_structure ||
            depth.container > deepest_container)
        {
            throw SignatureError("containers nest deeper than D-Bus allows");
        }
        return depth;
    }
};

class SignatureReader
{
  public:
    explicit SignatureReader(std::string_view text) : rest(text)
    {
    }

    Type read_whole()
    {
        Type type = read({});
        if (!rest.empty())
        {
            throw SignatureError("more than one complete type");
        }
        return type;
    }

  private:
    Type read(Depth depth)
    {
        const char letter = next();
        switch (letter)
        {
        case 'A':
            return {Kind::set, {read(depth.in_array())}};
        case 'a':
            return take('{') ? read_dict(depth.in_array())
                             : Type{Kind::array, {read(depth.in_array())}};
        case '(':
            return {Kind::structure, read_until(')', depth.in_structure())};
        case 'v':
            return read_variant(depth.in_variant());
        default:
            return {basic_kind(letter), {}};
        }
    }

    Type read_dict(Depth depth)
    {
        Type key = read(depth);
        if (!is_basic(key))
        {
            throw SignatureError("the key of a dict is not a basic type");
        }
        Type value = read(depth);
        if (!take('}'))
        {
            throw SignatureError("expected '}'");
        }
        return {Kind::dict, {std::move(key), std::move(value)}};
    }

    Type read_variant(Depth depth)
    {
        if (!take('<'))
        {
            throw SignatureError("a variant needs its alternatives: v<...>");
        }
        Type variant{Kind::variant, read_until('>', depth)};

        // A reader tells the alternatives apart by their signatures.
        std::vector<std::string> signatures;
        for (const Type& alternative : variant.members)
        {
            signatures.push_back(signature(alternative));
        }
        std::sort(signatures.begin(), signatures.end());
        if (std::adjacent_find(signatures.begin(), signatures.end()) != signatures.end())
        {
            throw SignatureError("two alternatives of a variant have the same signature");
        }
        return variant;
    }

    std::vector<Type> read_until(char close, Depth depth)
    {
        std::vector<Type> members;
        do
        {
            members.push_back(read(depth));
        } while (!take(close));
        return members;
    }

    static Kind basic_kind(char letter)
    {
        for (const KindNames& names : kinds)
        {
            if (names.letter == letter && is_basic_kind(names.kind))
            {
                return names.kind;
            }
        }
        throw SignatureError(std::string("unknown type '") + letter + "'");
    }

    char next()
    {
        if (rest.empty())
        {
            throw SignatureError("ends within a type");
        }
        const char letter = rest.front();
        rest.remove_prefix(1);
        return letter;
    }

    bool take(char letter)
    {
        if (!rest.starts_with(letter))
        {
            return false;
        }
        rest.remove_prefix(1);
        return true;
    }

    std::string_view rest;
};

} // namespace

Type parse_type(std::string_view extended)
{
    Type type = SignatureReader(extended).read_whole();
    if (signature(type).size() > longest_signature)
    {
        throw SignatureError("longer than D-Bus allows");
    }
    return type;
}

std::string signature(const Type& type)
{
    std::string members;
    if (type.kind != Kind::variant)
    {
        for (const Type& member : type.members)
        {
            members += signature(member);
        }
    }
    switch (type.kind)
    {
    case Kind::structure:
        return '(' + members + ')';
    case Kind::dict:
        return "a{" + members + '}';
    default:
        return names_of(type.kind)->letter + members;
    }
}

std::string cpp_type(const Type& type)
{
    std::string text{names_of(type.kind)->cpp};
    std::string_view separator = "<";
    for (const Type& member : type.members)
    {
        text += separator;
        text += cpp_type(member);
        separator = ", ";
    }
    if (!type.members.empty())
    {
        text += '>';
    }
    return text;
}

bool is_basic(const Type& type)
{
    return is_basic_kind(type.kind);
}

bool is_number(const Type& type)
{
    return is_basic(type) && type.kind != Kind::string;
}

Type property_variant(const std::vector<Type>& types)
{
    // Types of one template stand in the order of their text, which has its element types first.
    using Place = std::pair<decltype(names_of(Kind{})), std::string>;
    std::map<Place, Type> places;
    for (const Type& type : types)
    {
        places.try_emplace({names_of(type.kind), cpp_type(type)}, type);
    }
    Type variant{Kind::variant, {}};
    for (const auto& [place, type] : places)
    {
        variant.members.push_back(type);
    }
    return variant;
}

} // namespace gantrygen
