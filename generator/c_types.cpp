#include "c_types.hpp"

#include "names.hpp"

#include <algorithm>

namespace gantrygen
{
namespace
{

using Kind = Type::Kind;

/** What the record of an array of such elements is named for; empty if there is no record. */
std::string element_name(const Type& element)
{
    switch (element.kind)
    {
    case Kind::byte:
        return "byte";
    case Kind::int16:
        return "int16";
    case Kind::uint16:
        return "uint16";
    case Kind::int32:
        return "int32";
    case Kind::uint32:
        return "uint32";
    case Kind::int64:
        return "int64";
    case Kind::uint64:
        return "uint64";
    case Kind::double_:
        return "double";
    case Kind::string:
        return "string";
    case Kind::array:
        return element.members.front().kind == Kind::uint32 ? "uint32_array" : "";
    default:
        return "";
    }
}

} // namespace

bool has_c_form(const Type& type)
{
    switch (type.kind)
    {
    case Kind::array:
    case Kind::set:
        return !element_name(type.members.front()).empty();
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
        return "GANTRY_" + element_name(type.members.front()) + "_array*";
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

std::string c_struct_guard(const Type& structure)
{
    return capitals(c_struct(structure));
}

} // namespace gantrygen
