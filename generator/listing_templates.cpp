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
