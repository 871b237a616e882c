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

// How deep D-Bus allows arrays, structures and all containers together to nest.
constexpr int deepest_array = 32;
constexpr int deepest_structure = 32;
constexpr int deepest_container = 64;

/** A kind's name in C++, and that of a basic kind in the names of C functions and records. The
 * order of the kinds is that of a PropertyVariant's alternatives. */
struct KindNames
{
    Kind kind;
    std::string_view cpp;
    std::string_view c = {};
};

constexpr std::array kinds{
    KindNames{Kind::boolean, "bool", "boolean"},
    KindNames{Kind::double_, "double", "double"},
    KindNames{Kind::int16, "short", "int16"},
    KindNames{Kind::int32, "int", "int32"},
    KindNames{Kind::int64, "long", "int64"},
    KindNames{Kind::dict, "std::map"},
    KindNames{Kind::set, "std::set"},
    KindNames{Kind::string, "std::string", "string"},
    KindNames{Kind::structure, "std::tuple"},
    KindNames{Kind::variant, "std::variant"},
    KindNames{Kind::array, "std::vector"},
    KindNames{Kind::uint16, "unsigned short", "uint16"},
    KindNames{Kind::uint32, "unsigned int", "uint32"},
    KindNames{Kind::uint64, "unsigned long", "uint64"},
    KindNames{Kind::byte, "unsigned char", "byte"},
};

constexpr auto names_of(Kind kind)
{
    return std::find_if(kinds.begin(), kinds.end(),
                        [kind](const KindNames& names) { return names.kind == kind; });
}

/** The name behind GANTRY_ of the C record of an array of such elements; empty if there is none. */
std::string record_of(const Type& element)
{
    if (element.kind == Kind::array)
    {
        return element.members[0].kind == Kind::uint32 ? "uint32_array_array" : "";
    }
    const bool has_record = is_basic(element) && element.kind != Kind::boolean;
    return has_record ? std::string(names_of(element.kind)->c) + "_array" : "";
}

/** The signature of a value, or of what a variant holds. */
std::string signature_on_bus(const Type& type)
{
    std::string text = signature(type);
    if (text.size() > longest_signature)
    {
        throw SignatureError("longer than D-Bus allows");
    }
    return text;
}

/** How deep the type that is being read is nested. */
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

    // A variant's value carries its own signature, so its arrays and structures count from zero.
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
        case 'o':
            throw SignatureError("object paths ('o') are not supported, 's' is");
        case 'g':
            throw SignatureError("signatures ('g') are not supported, 's' is");
        case 'h':
            throw SignatureError("file descriptors ('h') are not supported");
        default:
            if (std::string_view("ybnqiuxtds").find(letter) == std::string_view::npos)
            {
                throw SignatureError(std::string("unknown type '") + letter + "'");
            }
            return {Kind{letter}, {}};
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
            throw SignatureError("a variant needs its alternatives, like a{sv<ns(nix)>} in the "
                                 "annotation com.orvane.gantry.Type");
        }
        Type variant{Kind::variant, read_until('>', depth)};

        // A reader tells the alternatives apart by their signatures.
        std::vector<std::string> signatures;
        for (const Type& alternative : variant.members)
        {
            signatures.push_back(signature_on_bus(alternative));
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

std::string spelled(const Type& type, bool extended)
{
    std::string members;
    for (const Type& member : type.members)
    {
        members += spelled(member, extended);
    }
    switch (type.kind)
    {
    case Kind::structure:
        return '(' + members + ')';
    case Kind::dict:
        return "a{" + members + '}';
    case Kind::set:
        return (extended ? 'A' : 'a') + members;
    case Kind::variant:
        return extended ? "v<" + members + '>' : "v";
    default:
        return static_cast<char>(type.kind) + members;
    }
}

} // namespace

Type parse_type(std::string_view extended)
{
    Type type = SignatureReader(extended).read_whole();
    signature_on_bus(type);
    return type;
}

std::string signature(const Type& type)
{
    return spelled(type, false);
}

std::string extended_signature(const Type& type)
{
    return spelled(type, true);
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
    return type.members.empty();
}

bool is_number(const Type& type)
{
    return is_basic(type) && type.kind != Kind::string;
}

Type property_variant(const std::vector<Type>& types)
{
    // Types of one template are in the order of their texts, as these compare by element type.
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

std::vector<Type> c_property_types()
{
    std::vector<Type> types{{Kind::array, {{Kind::byte, {}}}}, {Kind::array, {{Kind::string, {}}}}};
    for (const KindNames& names : kinds)
    {
        if (!names.c.empty())
        {
            types.push_back({names.kind, {}});
        }
    }
    return types;
}

std::string c_property_type(const Type& type)
{
    if (type.kind != Kind::array)
    {
        return std::string(names_of(type.kind)->c);
    }
    const Kind element = type.members[0].kind;
    return element == Kind::byte ? "bytes" : element == Kind::string ? "strings" : "";
}

bool has_c_form(const Type& type)
{
    switch (type.kind)
    {
    case Kind::array:
        return !record_of(type.members[0]).empty();
    case Kind::set:
        return is_number(type.members[0]) && !record_of(type.members[0]).empty();
    case Kind::structure:
        return std::all_of(type.members.begin(), type.members.end(),
                           [](const Type& member)
                           { return member.kind != Kind::structure && has_c_form(member); });
    default:
        return is_basic(type);
    }
}

std::string c_type(const Type& type)
{
    switch (type.kind)
    {
    case Kind::string:
        return "char*";
    case Kind::array:
    case Kind::set:
        return "GANTRY_" + record_of(type.members[0]) + '*';
    case Kind::structure:
        return c_struct(type) + '*';
    default:
        return cpp_type(type);
    }
}

std::string c_struct(const Type& structure)
{
    const std::string fields = signature(structure);
    return "GANTRY_struct_" + fields.substr(1, fields.size() - 2);
}

} // namespace gantrygen
