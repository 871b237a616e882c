/*
 * The context that a host's null stands for. Apart from gantrycontext.hpp, since generated code
 * needs to know no more of a context.
 */
#pragma once

#include "log.hpp"

#include <gantry/context.h>

namespace gantry
{

/**
 * `context` itself, or for null the calling thread's. Null, and logged for `place`, when there is
 * none.
 */
GANTRY_cpp_context* resolve(const Place& place, GANTRY_cpp_context* context);

} // namespace gantry
