#include "property_by_name.hpp"

#include "property_callbacks.hpp"

namespace gantry
{
namespace
{

template <class Type>
void set_as(const Property<Object>& row, Object& object, const void* value, bool skip_signal)
{
    const auto& alternative = *static_cast<const Type*>(value);
    const auto setter = accessors_of<Type>(row).set;
    if constexpr (std::is_scalar_v<Type>)
    {
        (object.*setter)(alternative, skip_signal);
    }
    else
    {
        (object.*setter)(copy_of(alternative), skip_signal);
    }
}

/** One function for each property type, in the order of the tags. */
template <class... Types>
constexpr auto setters(TypeList<Types...> /*types*/)
{
    return std::array{set_as<Types>...};
}

constexpr auto set_by_type = setters(PropertyTypes{});

} // namespace

const Property<Object>* Properties::find(std::string_view name) const noexcept
{
    const auto* const rows = static_cast<const Property<Object>*>(header);
    for (std::uint32_t at = name_hash(name);; ++at)
    {
        const auto& row = rows[slots[at & mask]];
        if (row.place == 0)
        {
            return nullptr;
        }
        if (row.name() == name)
        {
            return &row;
        }
    }
}

void set_from(const Property<Object>& row, Object& object, const void* value, bool skip_signal)
{
    set_by_type[row.type](row, object, value, skip_signal);
}

void throw_wrong_alternative()
{
    std::variant<bool, char> other{false};
    static_cast<void>(std::get<char>(other));
    __builtin_unreachable();
}

} // namespace gantry
