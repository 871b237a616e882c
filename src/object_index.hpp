/*
 * The published objects of a context: their records in the order in which they were published, and
 * an index over interface and path. Adding, finding and removing take the same time however many
 * objects there are.
 *
 * A host may free any object at any time, so the list is linked through the records: taking one out
 * allocates nothing and moves no other.
 */
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_set>
#include <vector>

struct GANTRY_instance;

namespace gantry
{

struct Descriptor;

class ObjectIndex
{
  public:
    /** Adds a record as the newest one. */
    void add(GANTRY_instance& instance);

    /** Takes a record out. */
    void remove(GANTRY_instance& instance) noexcept;

    /** The record of that interface at `path`; for null the oldest one of the interface. Returns
     *  null if there is none. */
    [[nodiscard]] GANTRY_instance* find(std::string_view interface, const char* path);

    /** Whether no record but this one has its path. */
    [[nodiscard]] bool is_alone(const GANTRY_instance& instance);

    /** The oldest record of all; its `newer` is the next one. */
    [[nodiscard]] GANTRY_instance* oldest() const noexcept
    {
        return first;
    }

    /** The newest record of all. */
    [[nodiscard]] GANTRY_instance* newest() const noexcept
    {
        return last;
    }

  private:
    /** What a record is found by. */
    struct Key
    {
        std::string_view interface;
        std::string_view path;
    };
    /** Of the path alone, since few objects share one. Not noexcept, so that libstdc++ keeps each
     *  hash beside its record. */
    struct Hash
    {
        using is_transparent = void;
        std::size_t operator()(const Key& key) const;
        std::size_t operator()(const GANTRY_instance* instance) const;
    };
    struct Equal
    {
        using is_transparent = void;
        bool operator()(const GANTRY_instance* left, const GANTRY_instance* right) const noexcept
        {
            return left == right;
        }
        bool operator()(const Key& key, const GANTRY_instance* instance) const noexcept;
    };
    /** A class that has had objects here. */
    struct Class
    {
        const Descriptor* descriptor;
        GANTRY_instance* oldest;
    };

    Class* find_class(const Descriptor& descriptor) noexcept;

    GANTRY_instance* first = nullptr;
    GANTRY_instance* last = nullptr;
    std::unordered_set<GANTRY_instance*, Hash, Equal> index;
    std::vector<Class> classes;
};

} // namespace gantry
