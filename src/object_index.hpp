/*
 * The published objects of a context: their records in the order in which they were published, and
 * an index by path. Adding, finding and removing take the same time however many objects there are,
 * as long as few of them share a path.
 *
 * The index is a hash table in one block. Among many objects, a look-up reads memory that isn't in
 * the processor's caches; here that is only a slot, the record and its path.
 *
 * A host may free any object at any time, so the list is linked through the records: to remove one
 * allocates nothing and moves no other record.
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

    void remove(GANTRY_instance& instance) noexcept;

    /** The record of that interface at `path`, or for a null path the oldest one of the interface.
     *  Returns null if there is none. */
    [[nodiscard]] GANTRY_instance* find(std::string_view interface, const char* path) const;

    /** A record with that path of an object of the library's, which has an object manager there.
     *  Returns null if there is none. */
    [[nodiscard]] const GANTRY_instance* find_managed(std::string_view path) const;

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
    /** A class that has had objects here. `oldest` is null if it has none now. */
    struct Class
    {
        const Descriptor* descriptor;
        GANTRY_instance* oldest;
    };

    Class* find_class(const Descriptor& descriptor) noexcept;
    /** The position of the slot with the first record of that hash for which `matches` returns
     *  true; without one, the position of the empty slot behind them. */
    template <class Matches>
    [[nodiscard]] std::size_t probe(std::size_t hash, const Matches& matches) const;
    void insert(const Slot& slot) noexcept;

    GANTRY_instance* first = nullptr;
    GANTRY_instance* last = nullptr;
    /** Their number is 0 or a power of two; at least a quarter of them is empty. */
    std::vector<Slot> slots;
    std::size_t count = 0;
    std::vector<Class> classes;
};

} // namespace gantry
