#include "templates.hpp"

namespace gantrygen::templates
{

const std::string_view catalogue = R"(
/* Made by gantrygen: the C functions of every interface. */
#ifndef GANTRY_CATALOGUE_H
#define GANTRY_CATALOGUE_H

%each interfaces
#include <$directory/gantry_server.h>
%end

#endif
)";

const std::string_view reference = R"(
<!-- Made by gantrygen --reference from the tables com/**/server.xml. Changes belong there. -->

# The catalogue

Every interface of the library, for clients (names and signatures on the bus) and for hosts (C and
C++ names).

- **Default path, default service** are what an object gets whose host names none.
- **Properties** are set by the host: `accessor(value)` announces a change as `PropertiesChanged`,
  `accessor(value, true)` doesn't, and `accessor()` reads. Without an initial value one is zero,
  false or empty. *const*: clients are told that the value never changes, and no change is
  announced. *writable*: clients may set it too. *key*: setting it registers the object with the
  data store.
- **Methods** call the host's function in that slot of its C table. *Shape* says who replies with
  what the function gives: the bus callback (`reply`), or the C++ operation itself, which is given
  the message (`message`). To clients and to C hosts both are the same. *Privileged*: only
  privileged clients may call it. A call that the host has deferred is answered by
  `GANTRY_reply__<interface>__<Method>`, with underscores for the interface's dots.
- **Meaning** is left empty where the name says it. The library stores and serves values without
  interpreting them: where no codes, units or scale are given, the host defines them.
- **Signals** are sent and received by exported C functions. Ownership of what their arguments and
  those of methods point to is told in the header.

## Overview

| interface | group | properties | methods | signals | |
|---|---|---|---|---|---|
%each interfaces
| [$leaf](#$interface) | $group | $properties | $methods | $signals | $summarycell |
%end
%each interfaces

<a id="$interface"></a>

## $interface
%if summary

$summarycell
%end
%if doc

$doccell
%end

|  |  |
|---|---|
| default path | `$path` |
| default service | `$interface` |
| creating function | `$instantiate` |
%if methods
| C table | `$table` |
%else
| C table | none; pass null |
%end
| server class | `$server::$class` |
| derived class | `$derived::$leaf` |
| C header | `<$directory/gantry_server.h>` |
| C++ header | `<$directory/gantry_server.hpp>` |
%if properties

| property | signature | C++ type | accessor | initial | flags | meaning |
|---|---|---|---|---|---|---|
%each properties
| `$member` | `$signature` | `$type` | `$accessor` | $initialcell | $flags | $doccell |
%end
%end
%if methods

| method | in | out | slot | shape | privileged | C function | meaning |
|---|---|---|---|---|---|---|---|
%each methods
| `$member` | $incell | $outcell | $slot | $shape | $privileged | `void (*$member)($function)` | $doccell |
%end
%end
%if signals

| signal | signature | sent by | received by | meaning |
|---|---|---|---|---|
%each signals
| `$member` | $cell | `$send(GANTRY_instance* instance$sent)` | `$receive(GANTRY_cpp_context* context, void (*callback)(GANTRY_cpp_context* context$received))` | $doccell |
%end
%end
%end
)";

const std::string_view symbols = R"(
%each interfaces
vtable for $server::$class
typeinfo for $server::$class
typeinfo name for $server::$class
$server::$class::$class
$server::$class::~$class
$server::$class::_vtable
vtable for $derived::$leaf
typeinfo for $derived::$leaf
typeinfo name for $derived::$leaf
$derived::$leaf::$leaf
$derived::$leaf::~$leaf
$instantiate
%each methods
$server::$class::$callback
$derived::$leaf::$operation
$reply
%end
%each signals
$server::$class::$operation
$send
$receive
%end
%each properties
$server::$class::$accessor
$server::$class::$accessor
$server::$class::$accessor
$server::$class::$get
%if writable
$server::$class::$set
%end
%end
%if properties
$server::$class::getPropertyByName
$server::$class::setPropertyByName
%end
%end
)";

} // namespace gantrygen::templates
