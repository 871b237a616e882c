/*
 * What the library exports for an interface, as `nm -DC --defined-only` prints it, with
 * `std::string` for what that spells out and without `[abi:cxx11]`. The exports of a build can be
 * held against it.
 */
#pragma once

#include "model.hpp"

#include <set>
#include <string>

namespace gantrygen
{

/** Adds the interface's exported symbols. */
void add_symbols(const Interface& interface, std::set<std::string>& symbols);

} // namespace gantrygen
