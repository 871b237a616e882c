// Message bodies as one line of text, so that a test compares a whole reply with one string.
//
// The line is the signature, a space, and the values separated by ", ":
//   basic types   1   -5   0.5   true   "text" with \" and \\ (paths and signatures too)
//   array         [1, 2]            dictionary   {"a": 1, "b": 2}, in the order of the message
//   structure     (1, "a")          variant      <s "text">, its signature before its value
// An empty body is the empty string.
#pragma once

#include <string>

#include <systemd/sd-bus.h>

namespace support
{

// Renders the whole body and rewinds the message. Throws std::system_error on a bad message.
std::string render(sd_bus_message* message);

// Renders the next complete value, moving past it, without its signature.
std::string render_next(sd_bus_message* message);

} // namespace support
