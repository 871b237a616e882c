// The memory of a process with one thread: what is allocated while it counts, by whatever library,
// and which of that fails.
#pragma once

#include <utility>

namespace memory
{

inline bool counts = false;
inline long count = 0;
inline long first_failing = 0;
inline long behind_failing = 0;
inline long blocks = 0; // in use, counted or not

// Runs what counts, or what doesn't.
template <class Call>
void count_in(const Call& call, bool does = true)
{
    const bool before = std::exchange(counts, does);
    call();
    counts = before;
}

} // namespace memory
