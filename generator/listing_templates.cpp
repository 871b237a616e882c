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

const std::string_view property_types_hpp = R"(
// Made by gantrygen from the tables of all interfaces. Changes belong there.
#pragma once

%each headers
#include <$header>
%end

namespace gantry
{

template <class... Types>
struct TypeList;

/** What the frame does with a property exists once for each of these. */
using PropertyTypes = TypeList<
$types
>;

} // namespace gantry
)";

const std::string_view property_callbacks_cpp = R"(
// Made by gantrygen from the tables of all interfaces. Changes belong there.
#include "property_callbacks_impl.hpp"

namespace gantry
{

%each instances
GANTRY_$kind($type)
%end

} // namespace gantry
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
$subscribe
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
