#include "object_index.hpp"

#include "instance.hpp"

#include <algorithm>
#include <cstring>
#include <functional>

namespace gantry
{
namespace
{

std::size_t hash_of(std::string_view path) noexcept
{
    return std::hash<std::string_view>()(path);
}

} // namespace

bool is_below(std::string_view root, std::string_view path)
{
    const std::size_t length = root == "/" ? 0 : root.size();
    return path.size() > length + 1 && path.starts_with(root) && path[length] == '/';
}

ObjectIndex::Class* ObjectIndex::find_class(const Descriptor& descriptor) noexcept
{
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const auto& each) { return each.descriptor == &descriptor; });
    return found != classes.end() ? &*found : nullptr;
}

template <class Matches>
std::size_t ObjectIndex::probe(std::size_t hash, const Matches& matches) const
{
    const std::size_t mask = slots.size() - 1;
    std::size_t at = hash & mask;
    while (slots[at].instance != nullptr &&
           (slots[at].hash != hash || !matches(*slots[at].instance)))
    {
        at = (at + 1) & mask;
    }
    return at;
}

void ObjectIndex::insert(const Slot& slot) noexcept
{
    slots[probe(slot.hash, [](const auto&) { return false; })] = slot;
}

void ObjectIndex::add(GANTRY_instance& instance)
{
    if (find_class(*instance.descriptor) == nullptr)
    {
        classes.push_back({instance.descriptor, nullptr});
    }
    if (4 * (count + 1) > 3 * slots.size())
    {
        std::vector<Slot> larger(std::max<std::size_t>(16, 2 * slots.size()));
        slots.swap(larger);
        for (const auto& slot : larger)
        {
            if (slot.instance != nullptr)
            {
                insert(slot);
            }
        }
    }
    insert({hash_of(instance.path), &instance});
    ++count;

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
        // The next one of the class is newer, so all removals together walk the list at most once
        // per class.
        do
        {
            oldest = oldest->newer;
        } while (oldest != nullptr && oldest->descriptor != instance.descriptor);
    }
    const std::size_t mask = slots.size() - 1;
    std::size_t hole =
        probe(hash_of(instance.path), [&](const auto& each) { return &each == &instance; });
    // A record that a probe would no longer reach moves into the hole.
    for (std::size_t at = (hole + 1) & mask; slots[at].instance != nullptr; at = (at + 1) & mask)
    {
        if (((at - slots[at].hash) & mask) >= ((at - hole) & mask))
        {
            slots[hole] = slots[at];
            hole = at;
        }
    }
    slots[hole].instance = nullptr;
    --count;
    (instance.older != nullptr ? instance.older->newer : first) = instance.newer;
    (instance.newer != nullptr ? instance.newer->older : last) = instance.older;
    instance.is_listed = false;
}

GANTRY_instance* ObjectIndex::find(std::string_view interface, const char* path) const
{
    if (path != nullptr)
    {
        const auto matches = [&](const GANTRY_instance& each)
        { return interface == each.descriptor->interface && std::strcmp(path, each.path) == 0; };
        return slots.empty() ? nullptr : slots[probe(hash_of(path), matches)].instance;
    }
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&](const auto& each)
                     { return each.oldest != nullptr && each.descriptor->interface == interface; });
    return found != classes.end() ? found->oldest : nullptr;
}

const GANTRY_instance* ObjectIndex::find_managed(std::string_view path) const
{
    const auto matches = [&](const GANTRY_instance& each)
    { return !each.is_own() && path == each.path; };
    return slots.empty() ? nullptr : slots[probe(hash_of(path), matches)].instance;
}

bool ObjectIndex::is_alone(const GANTRY_instance& instance) const
{
    const auto matches = [&](const GANTRY_instance& each)
    { return &each != &instance && std::strcmp(instance.path, each.path) == 0; };
    return slots.empty() || slots[probe(hash_of(instance.path), matches)].instance == nullptr;
}

} // namespace gantry
