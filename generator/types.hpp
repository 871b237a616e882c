/*
 * The type of a value on the bus and in C++.
 *
 * A D-Bus signature leaves two things open: whether an array is a sequence or a set, and what a
 * variant may hold. A table settles both with an extended signature, in which `A` is a set where
 * D-Bus has `a`, and the alternatives of a variant follow it in angle brackets, in the order in
 * which a reader tries them: `v<y(nix)s>`. Reduced to what D-Bus knows (`A` to `a`, `v<...>` to
 * `v`) it is a plain signature again.
 */
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

struct Type
{
    enum class Kind
    {
        byte,
        boolean,
        int16,
        uint16,
        int32,
        uint32,
        int64,
        uint64,
        double_,
        string,
        array,
        set,
        dict,
        structure,
        variant,
    };

    Kind kind;

    /** The element of an array or set, key and value of a dict, a structure's fields, a variant's
     *  alternatives. Empty in a basic type. */
    std::vector<Type> members;

    bool operator==(const Type&) const = default;
};

class SignatureError : public std::invalid_argument
{
  public:
    using std::invalid_argument::invalid_argument;
};

/** Reads one complete type from an extended signature. Throws SignatureError. */
Type parse_type(std::string_view extended);

/** The D-Bus signature. */
std::string signature(const Type& type);

/** The C++ type, as code names it: `std::map<unsigned short, std::string>`. */
std::string cpp_type(const Type& type);

bool is_basic(const Type& type);

/** A number or a boolean: copied for nothing, and without a value of its own to start at. */
bool is_number(const Type& type);

/** The variant of the distinct types among those given, in the order that a PropertyVariant has. */
Type property_variant(const std::vector<Type>& types);

} // namespace gantrygen
