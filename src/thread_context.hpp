/*
 * Where a thread's context is kept: under one pthread key for the whole process, which is created
 * at the first use. A thread that exits destroys its context.
 */
#pragma once

#include <gantry/context.hpp>

namespace gantry
{

/** Creates the key if there is none yet. Returns whether there is one; where that has failed, or
 *  the library is being unloaded, there never will be. */
bool has_thread_key() noexcept;

/** The calling thread's context, or null: none is made. For signal handlers too. */
GANTRY_cpp_context* own_context() noexcept;

/** Makes a context, or for null none, the calling thread's. Throws std::bad_alloc. */
void set_own_context(GANTRY_cpp_context* context);

/** Deletes the key. Contexts of live threads stay as they are. Returns 0, an errno, or -1 if there
 *  was no key. */
int delete_thread_key() noexcept;

} // namespace gantry
