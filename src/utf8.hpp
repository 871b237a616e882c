/*
 * Text on its way to the bus. D-Bus strings are UTF-8, and sd-bus takes nothing else: a string that
 * isn't is not appended, and the half-made message costs the connection. Inventory text comes from
 * EEPROMs, so what the host stored stays as it is, and what leaves is repaired.
 */
#pragma once

#include <string>
#include <string_view>

namespace gantry
{

/** Whether sd-bus takes the text: UTF-8 without surrogates and noncharacters. */
bool is_utf8(std::string_view text) noexcept;

/** The text with each invalid sequence replaced by U+FFFD. */
std::string repaired_utf8(std::string_view text);

} // namespace gantry
