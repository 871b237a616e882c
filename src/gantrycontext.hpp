/*
 * The calling thread's context, which a null argument of the host's means.
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

/** The calling thread's context, or null: none is made. For signal handlers too. */
GANTRY_cpp_context* own_context() noexcept;

} // namespace gantry
