#include "object_index.hpp"

#include "object.hpp"

#include <algorithm>
#include <functional>

namespace gantry
{

std::size_t ObjectIndex::Hash::operator()(const Key& key) const
{
    return std::hash<std::string_view>()(key.path);
}

std::size_t ObjectIndex::Hash::operator()(const GANTRY_instance* instance) const
{
    return std::hash<std::string_view>()(instance->path);
}

bool ObjectIndex::Equal::operator()(const Key& key, const GANTRY_instance* instance) const noexcept
{
    return key.path == instance->path && key.interface == instance->descriptor->interface;
}

ObjectIndex::Class* ObjectIndex::find_class(const Descriptor& descriptor) noexcept
{
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const auto& each) { return each.descriptor == &descriptor; });
    return found != classes.end() ? &*found : nullptr;
}

void ObjectIndex::add(GANTRY_instance& instance)
{
    if (find_class(*instance.descriptor) == nullptr)
    {
        classes.push_back({instance.descriptor, nullptr});
    }
    index.insert(&instance);

    auto& oldest = find_class(*instance.descriptor)->oldest;
    oldest = oldest != nullptr ? oldest : &instance;
    instance.older = last;
    instance.newer = nullptr;
    (last != nullptr ? last->newer : first) = &instance;
    last = &instance;
    instance.is_listed = true;
}

void ObjectIndex::remove(GANTRY_instance& instance) noexcept
{
    auto& oldest = find_class(*instance.descriptor)->oldest;
    if (oldest == &instance)
    {
        // The next one of the class is newer, so all removals together walk the list once.
        do
        {
            oldest = oldest->newer;
        } while (oldest != nullptr && oldest->descriptor != instance.descriptor);
    }
    index.erase(&instance);
    (instance.older != nullptr ? instance.older->newer : first) = instance.newer;
    (instance.newer != nullptr ? instance.newer->older : last) = instance.older;
    instance.is_listed = false;
}

GANTRY_instance* ObjectIndex::find(std::string_view interface, const char* path)
{
    if (path != nullptr)
    {
        const auto found = index.find(Key{interface, path});
        return found != index.end() ? *found : nullptr;
    }
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const auto& each)
                     { return each.oldest != nullptr && each.descriptor->interface == interface; });
    return found != classes.end() ? found->oldest : nullptr;
}

bool ObjectIndex::is_alone(const GANTRY_instance& instance)
{
    return std::none_of(classes.begin(), classes.end(),
                        [&](const auto& each)
                        {
                            return each.descriptor != instance.descriptor &&
                                   each.oldest != nullptr &&
                                   find(each.descriptor->interface, instance.path) != nullptr;
                        });
}

} // namespace gantry
