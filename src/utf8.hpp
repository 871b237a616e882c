/*
 * Text for the bus. D-Bus strings are UTF-8. sd-bus doesn't append any other string, and sending
 * the incomplete message closes the connection. Inventory text comes from EEPROMs and may have any
 * bytes, so a text stays as the host stored it and is repaired when it is sent.
 */
#pragma once

#include <gantry/export.h>

#include <string>
#include <string_view>

namespace gantry
{

/** Whether sd-bus accepts the text: UTF-8 without surrogates and noncharacters. */
GANTRY_API bool is_utf8(std::string_view text) noexcept;

/** The text with each invalid sequence replaced by U+FFFD. */
GANTRY_API std::string repaired_utf8(std::string_view text);

} // namespace gantry
