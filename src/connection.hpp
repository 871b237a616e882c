/*
 * A context's connection: the one way to it is GANTRY_get_sd_bus, and here is what several parts of
 * the library ask of it.
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/**
 * Requests a well-known name: it replaces another owner, may be replaced, and doesn't queue. Throws
 * SdBusError when the bus refuses.
 */
void request_name(GANTRY_cpp_context& context, const char* name);

/** Whether a callback of the connection is running. */
bool is_in_callback(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
