/*
 * C and C++ names. A table names its interface and its members as they are on the bus; all other
 * names are derived by rule, without exception:
 *
 *     hdr_DOT_objName  --title-->  HdrDOTObjName  --accessor-->  hdrDOTObjName
 *     FCoEDriver       --title-->  FCoEDriver     --accessor-->  fCoEDriver
 */
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gantrygen
{

/** As D-Bus allows it: two or more elements of letters, digits and `_`, joined by dots. */
bool is_interface_name(std::string_view name);

/** As D-Bus allows it: letters, digits and `_`, no digit first. */
bool is_member_name(std::string_view name);

/** Whether neither C nor C++ reserves the name. */
bool is_free_word(std::string_view name);

/** Whether the name is one of the words, which have a blank on each side. */
bool is_among(std::string_view name, std::string_view words);

/** The name in capitals. */
std::string capitals(std::string_view name);

/** The name without its `_`. The first letter and each letter behind a `_` become capitals. */
std::string title(std::string_view member);

/**
 * The C++ operation of a member: its title, in which the leading capitals become small letters. If
 * there are several and a small letter or digit follows, the last one stays, as it starts a word.
 */
std::string accessor(std::string_view member);

/** The parts of an interface's name between its dots. */
std::vector<std::string_view> elements(std::string_view interface);

/** `BLT` of com.orvane.velmar.system.BLT. */
std::string_view leaf(std::string_view interface);

/** The elements of a dotted name with something else in place of the dots. */
std::string joined(std::string_view dotted, std::string_view separator);

/** `com/orvane/velmar/system/BLT`: the directory of the table, and of its outputs below their root.
 */
std::string directory(std::string_view interface);

/** The name of the server class and of its common class: the leaf's title. */
std::string class_name(std::string_view interface);

} // namespace gantrygen
