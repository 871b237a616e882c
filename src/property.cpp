#include "property.hpp"

namespace gantry
{

const Property<Object>* Properties::find(std::string_view name) const noexcept
{
    const auto* const rows = static_cast<const Property<Object>*>(first);
    for (std::uint32_t at = name_hash(name);; ++at)
    {
        const std::uint8_t slot = slots[at & mask];
        if (slot == 0)
        {
            return nullptr;
        }
        const auto& row = rows[slot - 1];
        if (name == std::string_view{row.member, row.length})
        {
            return &row;
        }
    }
}

} // namespace gantry
