/*
 * docs/catalogue.md: every interface with its members, under its names on the bus, in C++ and in C.
 */
#pragma once

#include "model.hpp"

#include <string>
#include <vector>

namespace gantrygen
{

/** The page's text, in Markdown, for the interfaces of valid tables in any order. */
std::string emit_reference(std::vector<Interface> interfaces);

} // namespace gantrygen
