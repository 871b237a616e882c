#include "templates.hpp"

namespace gantrygen::templates
{

const std::string_view property_types_hpp = R"(
// Made by gantrygen from the tables of all interfaces. Changes belong there.
#pragma once

#include "type_list.hpp"

%each headers
#include <$header>
%end

namespace gantry
{

/** What the frame does with a property exists once for each of these. */
using PropertyTypes = TypeList<
%each types
    $type$comma
%end
>;

} // namespace gantry
)";

const std::string_view property_callbacks_cpp = R"(
// Made by gantrygen from the tables of all interfaces. Changes belong there.
#include "property_callbacks_impl.hpp"

namespace gantry
{

%each types
%if composite
%else
%if number
GANTRY_NUMBER_PROPERTY($type)
%else
GANTRY_PROPERTY($type)
%end
%end
%end

} // namespace gantry
)";

const std::string_view composite_property_callbacks_cpp = R"(
// Made by gantrygen from the tables of all interfaces. Changes belong there.
#include "property_callbacks_impl.hpp"

namespace gantry
{

%each types
%if composite
GANTRY_PROPERTY($type)
%end
%if writable
GANTRY_WRITABLE_PROPERTY($type)
%end
%end

} // namespace gantry
)";

} // namespace gantrygen::templates
