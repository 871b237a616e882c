/*
 * Reads a table: D-Bus introspection XML with one interface, in which annotations say what plain
 * introspection data cannot.
 *
 *     com.orvane.gantry.Type      on an argument or property: its extended signature (types.hpp)
 *     com.orvane.gantry.Initial   on a property: the value it starts with
 *     com.orvane.gantry.DataStore on a property: "key" if its value is the object's key in the
 *                                 platform's data store
 *     com.orvane.gantry.Reply     on a method: "message" if it makes its own reply
 *     org.freedesktop.DBus.Property.EmitsChangedSignal   on a property: "true" or "const"
 *     org.freedesktop.systemd1.Privileged                on a method: "true" or "false"
 *     org.gtk.GDBus.DocString     on an interface or a member: what it means, for readers
 *     org.gtk.GDBus.DocString.Short                      on an interface: the same in one line
 *
 * Annotations of other vocabularies are ignored.
 */
#pragma once

#include "model.hpp"

#include <string>

namespace gantrygen
{

/** The table in `file` as a model, whose names are not yet checked (validate.hpp). Throws
 * TableError on what isn't a table, and std::filesystem::filesystem_error if the file can't be
 * read. */
Interface parse_table(const std::string& file);

} // namespace gantrygen
