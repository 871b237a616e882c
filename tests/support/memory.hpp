// The heap of a process with one thread, whatever library allocates: how many blocks are in use,
// and, while it counts, which allocations fail. Under ASan blocks are counted, and none fails.
#pragma once

#include <utility>

namespace memory
{

inline bool counts = false;
inline long count = 0;
inline long first_failing = 0;
inline long behind_failing = 0;
inline long own_blocks = 0;
inline constinit long* blocks = &own_blocks; // may be moved to where another process reads it

// Runs what counts, or what doesn't.
template <class Call>
void count_in(const Call& call, bool does = true)
{
    const bool before = std::exchange(counts, does);
    call();
    counts = before;
}

} // namespace memory
