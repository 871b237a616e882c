/*
 * A class's properties by their D-Bus names, as values of the class's PropertyVariant. Classes
 * differ only in the alternatives of that variant. The accessors in the property's row do the work,
 * called through one function per property type.
 */
#pragma once

#include "property_callbacks.hpp"

#include <array>
#include <variant>

namespace gantry
{

/** One function per property type, in the order of the tags. */
template <class Types>
inline constexpr auto set_by_type = []<class... Each>(TypeList<Each...> /*types*/)
{ return std::array{set_as<Each>...}; }(Types{});

/** Throws what std::get throws if the variant holds another alternative. */
[[noreturn]] GANTRY_API void throw_wrong_alternative();

/**
 * Sets the property of that name; an unknown name changes nothing. Throws std::bad_variant_access
 * if the value doesn't hold the property's type.
 */
template <class Class, class... Types>
void set_by_name(const Properties& properties, Class& object, std::string_view name,
                 const std::variant<Types...>& value, bool skip_signal)
{
    const auto* row = properties.find(name);
    if (row == nullptr)
    {
        return;
    }
    constexpr std::uint8_t tags[] = {PropertyTypes::tag<Types>()...};
    if (value.valueless_by_exception())
    {
        static_cast<void>(std::get<0>(value)); // throws, with the text for such a variant
    }
    if (tags[value.index()] != row->type)
    {
        throw_wrong_alternative();
    }
    const void* held =
        std::visit([](const auto& alternative) -> const void* { return &alternative; }, value);
    set_by_type<PropertyTypes>[row->type](*row, reinterpret_cast<Object&>(object), held,
                                          skip_signal);
}

namespace details
{

template <class Tags, class... Types>
void get_alternative(std::variant<Types...>& value, const Property<Object>& row,
                     const Object& object)
{
    static_cast<void>(
        ((row.type == Tags::template tag<Types>() &&
          (value.template emplace<Types>((object.*accessors_of<Types>(row).get)()), true)) ||
         ...));
}

} // namespace details

/** The value of the property of that name; the variant's default if the name is unknown. */
template <class Variant, class Class>
Variant get_by_name(const Properties& properties, const Class& object, std::string_view name)
{
    Variant value;
    if (const auto* row = properties.find(name))
    {
        details::get_alternative<PropertyTypes>(value, *row,
                                                reinterpret_cast<const Object&>(object));
    }
    return value;
}

} // namespace gantry
