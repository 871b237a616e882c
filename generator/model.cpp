#include "model.hpp"

namespace gantrygen
{

Type property_variant(const Interface& interface)
{
    std::vector<Type> types;
    for (const Property& property : interface.properties)
    {
        types.push_back(property.type);
    }
    return property_variant(types);
}

} // namespace gantrygen
