// A look into the stand-in store, for tests and for a developer in a debugger. The real store has
// nothing of this; code of the library stays away from it.
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
    Entry entry; // of a removal the key alone

    bool operator==(const Operation&) const = default;
};

inline constexpr std::size_t history_limit = 256;

// What is registered now, by key.
__attribute__((visibility("default"))) std::vector<Entry> entries();

// The latest operations, at most history_limit, oldest first; no-ops included.
__attribute__((visibility("default"))) std::vector<Operation> history();

// Empties both.
__attribute__((visibility("default"))) void clear() noexcept;

} // namespace Tallybook
