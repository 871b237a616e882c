#include "property.hpp"

namespace gantry
{

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

} // namespace gantry
