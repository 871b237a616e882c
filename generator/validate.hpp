/*
 * What must hold before code is generated from a table: D-Bus allows its names, C and C++ allow the
 * names derived from them, no two members have the same accessor, every argument has a C form, and
 * every initial value fits its type.
 */
#pragma once

#include "model.hpp"

namespace gantrygen
{

/** Throws TableError on the first fault found. */
void validate(const Interface& interface);

} // namespace gantrygen
