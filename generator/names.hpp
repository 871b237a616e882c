/*
 * Every name that follows from a table's own names. A table names its interface and its members as
 * they stand on the bus; the C++ and C names follow by rule, without exception:
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

/** Whether neither C nor C++ reserves the name; of its letters nothing is asked. */
bool is_free_word(std::string_view name);

/** The name in capitals. */
std::string capitals(std::string_view name);

/** The name without its `_`, the letter behind each and the first letter raised. */
std::string title(std::string_view member);

/**
 * The C++ operation of a member. The capitals that open its title are lowered, all but the last,
 * which opens the next word; a single one is lowered too, and a title of nothing but capitals.
 */
std::string accessor(std::string_view member);

/** `BLT` of com.orvane.velmar.system.BLT. */
std::string_view leaf(std::string_view interface);

/** The interface's elements in front of its leaf. */
std::vector<std::string_view> groups(std::string_view interface);

/** `com/orvane/velmar/system/BLT`: where the table lives, and its outputs below their root. */
std::string directory(std::string_view interface);

/** `/com/orvane/velmar/system/BLT`. */
std::string default_path(std::string_view interface);

/** `sdbusplus::server::com::orvane::velmar::system`. */
std::string server_namespace(std::string_view interface);

/** `sdbusplus::common::com::orvane::velmar::system`. */
std::string common_namespace(std::string_view interface);

/** The name of the server class and of its common class: the leaf's title. */
std::string class_name(std::string_view interface);

/** `GANTRY_com_orvane_velmar_system_BLT`, the namespace of the derived class, whose name is the
 *  leaf unchanged. */
std::string derived_namespace(std::string_view interface);

/** The C type of a host's callbacks for the interface. */
std::string table_type(std::string_view interface);

std::string instantiate_function(std::string_view interface);
std::string signal_function(std::string_view interface, std::string_view signal);
std::string receive_signal_function(std::string_view interface, std::string_view signal);

std::string get_callback(std::string_view property);
std::string set_callback(std::string_view property);
std::string method_callback(std::string_view method);

} // namespace gantrygen
