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

/** The context's connection, without a further reference. */
sd_bus* connection_of(const GANTRY_cpp_context& context) noexcept;

/** The calling thread's context, or null: none is made. For signal handlers too. */
GANTRY_cpp_context* own_context() noexcept;

/** Destroys a context, which its thread's key forgets first. */
void destroy(GANTRY_cpp_context* context) noexcept;

/**
 * Puts an object manager at `path`, which stays on the bus as long as the connection. Gives its
 * slot, for remove_object_manager() alone; null when the connection refuses.
 */
sd_bus_slot* add_object_manager(GANTRY_cpp_context& context, const char* path);

/** Takes one object manager off the bus before its time; null is nothing to do. */
void remove_object_manager(GANTRY_cpp_context& context, sd_bus_slot* slot) noexcept;

/** Whether some callback of the context's connection is running. */
bool is_in_callback(const GANTRY_cpp_context& context) noexcept;

/** Deletes the freed objects that waited for a callback to return, unless one is running. */
void take_down_leaving(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
