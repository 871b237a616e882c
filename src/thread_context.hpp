/*
 * Where a thread's context is kept: under one pthread key for the whole process, which is created
 * at the first use. A thread that exits destroys its context.
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/** Creates the key at the first call. Returns whether there is one. If its creation failed, or the
 *  library is being unloaded, there is none from then on. */
bool has_thread_key() noexcept;

/** The calling thread's context; null if it has none. Signal handlers may call this. */
GANTRY_cpp_context* own_context() noexcept;

/** Makes a context, or for null none, the calling thread's. Throws std::bad_alloc. */
void set_own_context(GANTRY_cpp_context* context);

/** Deletes the key. Contexts of live threads stay as they are. Returns 0, an errno, or -1 if there
 *  was no key. */
int delete_thread_key() noexcept;

} // namespace gantry
