/*
 * The code that follows from a table. Every emitter takes a valid table (validate.hpp) and gives
 * the whole text of one output:
 *
 *     server.hpp, server.cpp                  the common class and the server class
 *     gantry_server.hpp, gantry_server.cpp    the derived class and the exported C functions
 *     gantry_server.h                         what a host calls
 *
 * Generated code has no logic of its own: it names members, types and callbacks to the frame.
 */
#pragma once

#include "model.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

std::string emit_server_hpp(const Interface& interface);
std::string emit_server_cpp(const Interface& interface);
std::string emit_gantry_server_hpp(const Interface& interface);
std::string emit_gantry_server_cpp(const Interface& interface);
std::string emit_gantry_server_h(const Interface& interface);

struct Output
{
    std::string_view name;
    std::string text;
};

/** All outputs of a table. */
std::vector<Output> emit(const Interface& interface);

} // namespace gantrygen
