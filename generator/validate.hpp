/*
 * What must hold of a table before code can follow from it: D-Bus allows its names, C++ allows the
 * names that follow from them, no two members come to the same name, and every initial value fits
 * its type.
 */
#pragma once

#include "model.hpp"

namespace gantrygen
{

/** Throws TableError on the first fault found. */
void validate(const Interface& interface);

} // namespace gantrygen
