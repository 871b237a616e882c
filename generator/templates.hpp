/*
 * The templates of all that gantrygen writes (template.hpp tells their form, words.hpp the words).
 * Generated code has no logic of its own: it names members, types and callbacks to the frame.
 */
#pragma once

#include <string_view>

namespace gantrygen::templates
{

/** Of one interface: the common class and the server class, */
extern const std::string_view server_hpp;
extern const std::string_view server_cpp;

/** the derived class and the exported C functions, */
extern const std::string_view gantry_server_hpp;
extern const std::string_view gantry_server_cpp;

/** what a host in C calls. */
extern const std::string_view gantry_server_h;

/** Of all interfaces: the list of their property types, */
extern const std::string_view property_types_hpp;

/** what the frame has for some of these types, */
extern const std::string_view property_callbacks_cpp;

/** <gantry/catalogue.h>, */
extern const std::string_view catalogue;

/** catalogue.html, the page of every interface with its members, */
extern const std::string_view page;

/** the exported symbols without parameter lists, a line for each overload. */
extern const std::string_view symbols;

} // namespace gantrygen::templates
