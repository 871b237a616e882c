/*
 * The type of a value on the bus, in C++ and in C.
 *
 * A D-Bus signature leaves two things open: whether an array is a sequence or a set, and what a
 * variant may hold. A table settles both with an extended signature, in which `A` is a set where
 * D-Bus has `a`, and the alternatives of a variant follow it in angle brackets, in the order in
 * which a reader tries them: `v<y(nix)s>`. Reduced to what D-Bus knows (`A` to `a`, `v<...>` to
 * `v`) it is a plain signature again.
 */
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

struct Type
{
    /** D-Bus's type codes, and our own for a set. */
    enum class Kind : char
    {
        byte = 'y',
        boolean = 'b',
        int16 = 'n',
        uint16 = 'q',
        int32 = 'i',
        uint32 = 'u',
        int64 = 'x',
        uint64 = 't',
        double_ = 'd',
        string = 's',
        array = 'a',
        set = 'A',
        dict = 'e',
        structure = 'r',
        variant = 'v',
    };

    Kind kind;

    /** The element of an array or set, key and value of a dict, a structure's fields, a variant's
     *  alternatives. Empty in a basic type. */
    std::vector<Type> members;
};

/** How long D-Bus allows a signature to be: that of a value, and that of all a message holds. */
constexpr std::size_t longest_signature = 255;

class SignatureError : public std::invalid_argument
{
  public:
    using std::invalid_argument::invalid_argument;
};

/** Reads one complete type from an extended signature. Throws SignatureError. */
Type parse_type(std::string_view extended);

/** The D-Bus signature. */
std::string signature(const Type& type);

/** The signature that parse_type() reads. */
std::string extended_signature(const Type& type);

/** The C++ type, as code names it: `std::map<unsigned short, std::string>`. */
std::string cpp_type(const Type& type);

bool is_basic(const Type& type);

/** Whether it is a number or a boolean. Such a value is as cheap to copy as a pointer, and a data
 *  member needs an initial value. */
bool is_number(const Type& type);

/** The variant of the distinct types among those given, in the order that a PropertyVariant has. */
Type property_variant(const std::vector<Type>& types);

/** The types whose properties a host in C sets and gets by <gantry/property.h>. */
std::vector<Type> c_property_types();

/** What the functions of <gantry/property.h> for such a type end with: `uint16`, `strings`. Empty
 * for any other type. */
std::string c_property_type(const Type& type);

/** Whether values of the type have a C form. Dicts, variants and deeper nesting have none. */
bool has_c_form(const Type& type);

/** The C type of a value: `unsigned char`, `char*`, `GANTRY_string_array*`, `GANTRY_struct_ixs*`.
 *  Records of arrays are in <gantry/records.h>, those of structures in their interface's header. */
std::string c_type(const Type& type);

/** The name of a structure's record: `GANTRY_struct_ixs`. */
std::string c_struct(const Type& structure);

} // namespace gantrygen
