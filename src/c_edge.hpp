/*
 * The edge to C of a function that reports by an errno: no exception goes on into the host's C
 * frames. A thread that is being ended unwinds on, as at the edge of a bus callback.
 */
#pragma once

#include "log.hpp"

#include <cxxabi.h>

namespace gantry
{

/** Logs the exception being handled for `place` and gives its errno, positive. */
int log_failure(const Place& place) noexcept;

/** Runs `call` and puts its result, or the errno of what it threw, into *error unless null. */
// For the attribute see at_edge().
template <class Call>
__attribute__((no_sanitize("null"))) void at_c_edge(const Place& place, int* error,
                                                    const Call& call)
{
    int result = 0;
    try
    {
        result = call();
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (...)
    {
        result = log_failure(place);
    }
    if (error != nullptr)
    {
        *error = result;
    }
}

} // namespace gantry
