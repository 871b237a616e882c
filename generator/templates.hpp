/*
 * The templates of all that gantrygen writes. template.hpp describes their form, words.hpp the
 * words. Generated code has no logic of its own: it passes members, types and callbacks to the code
 * of src/.
 */
#pragma once

#include <string_view>

namespace gantrygen::templates
{

// Outputs of one interface.

/** The common class and the server class. */
extern const std::string_view server_hpp;
extern const std::string_view server_cpp;

/** The derived class and the exported C functions. */
extern const std::string_view gantry_server_hpp;
extern const std::string_view gantry_server_cpp;

/** The declarations of what a host in C calls. */
extern const std::string_view gantry_server_h;

// Outputs of all interfaces together.

/** The list of the property types. */
extern const std::string_view property_types_hpp;

/** The instantiations for some of these types. */
extern const std::string_view property_callbacks_cpp;

/** <gantry/catalogue.h>. */
extern const std::string_view catalogue;

/** catalogue.html, the page of every interface with its members. */
extern const std::string_view page;

/** The exported symbols without parameter lists, one line per overload. */
extern const std::string_view symbols;

} // namespace gantrygen::templates
