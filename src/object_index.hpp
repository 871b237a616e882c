/*
 * The published objects of a context: their records in the order in which they were published, and
 * an index over their paths, which few objects share. Adding, finding and removing take the same
 * time however many objects there are.
 *
 * The index is a hash table in one block: a look-up among many objects reads memory that isn't in
 * the processor's caches, and here that is a slot, the record and its path.
 *
 * A host may free any object at any time, so the list is linked through the records: taking one out
 * allocates nothing and moves no other.
 */
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

struct GANTRY_instance;

namespace gantry
{

struct Descriptor;

/** Whether `path` is below `root`; a path isn't below itself. */
bool is_below(std::string_view root, std::string_view path);

class ObjectIndex
{
  public:
    /** Adds a record as the newest one. */
    void add(GANTRY_instance& instance);

    /** Takes a record out. */
    void remove(GANTRY_instance& instance) noexcept;

    /** The record of that interface at `path`; for null the oldest one of the interface. Returns
     *  null if there is none. */
    [[nodiscard]] GANTRY_instance* find(std::string_view interface, const char* path) const;

    /** Whether no record but this one has its path. */
    [[nodiscard]] bool is_alone(const GANTRY_instance& instance) const;

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
    /** An entry of the index; without a record it is empty. */
    struct Slot
    {
        std::size_t hash;
        GANTRY_instance* instance;
    };
    /** A class that has had objects here. */
    struct Class
    {
        const Descriptor* descriptor;
        GANTRY_instance* oldest;
    };

    Class* find_class(const Descriptor& descriptor) noexcept;
    /** The place of the first record with that hash that `matches`; if none does, that of the empty
     *  slot behind those. */
    template <class Matches>
    [[nodiscard]] std::size_t probe(std::size_t hash, const Matches& matches) const;
    void insert(const Slot& slot) noexcept;

    GANTRY_instance* first = nullptr;
    GANTRY_instance* last = nullptr;
    /** A power of two, at least a quarter of them empty. */
    std::vector<Slot> slots;
    std::size_t count = 0;
    std::vector<Class> classes;
};

} // namespace gantry
