/*
 * What the frame needs of a context beyond its public operations.
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/**
 * Requests a well-known name for the context's connection: it replaces another owner and may be
 * replaced, and doesn't queue. Throws SdBusError when the bus refuses.
 */
void request_name(GANTRY_cpp_context& context, const char* name);

/** Puts an object manager at `path`, which stays on the bus as long as the connection. */
void add_object_manager(GANTRY_cpp_context& context, const char* path);

} // namespace gantry
