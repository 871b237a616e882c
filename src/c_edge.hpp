/*
 * The edge to C of a function that reports by an errno: no exception goes on into the host's C
 * frames. A thread that is being ended unwinds on, as at the edge of a bus callback.
 */
#pragma once

#include "log.hpp"

namespace gantry
{

/** Some call without its type: the edge exists once. */
class EdgeCall
{
  public:
    template <class Call>
    EdgeCall(const Call& call) :
        object(&call), function([](const void* of) { return (*static_cast<const Call*>(of))(); })
    {
    }

    int operator()() const
    {
        return function(object);
    }

  private:
    const void* object;
    int (*function)(const void* of);
};

/**
 * Runs `call` and puts its result into *error unless that is null. What it throws is logged for
 * `place`, and its errno, positive, is the result.
 */
void at_c_edge(const Place& place, int* error, EdgeCall call);

/** Throws SdBusError when the result of a `call` into libsystemd says that it failed. */
void throw_if_failed(int result, const char* call);

} // namespace gantry
