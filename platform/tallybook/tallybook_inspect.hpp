// Inspects the stand-in store, for tests and debuggers. The real store doesn't have these
// functions, so the library must not use them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Tallybook
{

struct Entry
{
    std::string key;
    std::string class_name;
    std::string object_path;
    unsigned short caller_id = 0;

    bool operator==(const Entry&) const = default;
};

struct Operation
{
    enum class Kind
    {
        set_key,
        remove,
    };

    Kind kind = Kind::set_key;
    Entry entry; // for a removal only the key

    bool operator==(const Operation&) const = default;
};

inline constexpr std::size_t history_limit = 256;

/** The present registrations, sorted by key. */
__attribute__((visibility("default"))) std::vector<Entry> entries();

/** The latest operations, at most history_limit, oldest first, including those without effect. */
__attribute__((visibility("default"))) std::vector<Operation> history();

/** Removes all registrations and the history. */
__attribute__((visibility("default"))) void clear() noexcept;

} // namespace Tallybook
