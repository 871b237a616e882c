/*
 * <gantry/catalogue.h>: one header that brings a host every interface of the library.
 */
#pragma once

#include <string>
#include <vector>

namespace gantrygen
{

/** The header's text, for the interfaces of these names in any order. */
std::string emit_catalogue(std::vector<std::string> interfaces);

} // namespace gantrygen
