#include "property_by_name.hpp"

namespace gantry
{

const Property<Object>* Properties::find(std::string_view name) const noexcept
{
    const auto* const rows = this->rows();
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

void throw_wrong_alternative()
{
    std::variant<bool, char> other{false};
    static_cast<void>(std::get<char>(other));
    __builtin_unreachable();
}

} // namespace gantry
