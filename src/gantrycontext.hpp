/*
 * What a context argument of a host means.
 */
#pragma once

#include "log.hpp"

#include <gantry/context.hpp>

namespace gantry
{

/**
 * `context` itself, or for null the calling thread's. Returns null, and logs for `place`, if there
 * is none.
 */
GANTRY_cpp_context* resolve(const Place& place, GANTRY_cpp_context* context);

} // namespace gantry
