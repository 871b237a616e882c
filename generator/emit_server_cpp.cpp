#include "emit.hpp"
#include "source.hpp"

#include <algorithm>

namespace gantrygen
{
namespace
{

/** The frame's headers, each only where what it has is used. */
void add_includes(Source& source, const Interface& interface)
{
    const auto& properties = interface.properties;
    const auto is_key = [](const Property& property) { return property.data_store_key; };
    const std::pair<bool, std::string> headers[] = {
        {!properties.empty(), "property_by_name.hpp"},
        {!properties.empty(), "property_callbacks.hpp"},
        {std::any_of(properties.begin(), properties.end(), is_key), "property_data_store.hpp"},
        {!properties.empty(), "log.hpp"},
        {!interface.methods.empty(), "method_callback.hpp"},
        {!interface.signals.empty(), "signal.hpp"},
    };
    bool any = false;
    for (const auto& [used, header] : headers)
    {
        if (used)
        {
            source.let({{"header", header}});
            source.add("#include \"$header\"\n");
            any = true;
        }
    }
    if (any)
    {
        source.blank();
    }
    source.add("#include <sdbusplus/vtable.hpp>\n");
}

/** The destructor of a class without properties has nothing to say. */
void add_lifecycle(Source& source, const Interface& interface)
{
    source.add(R"(
$class::$class(sdbusplus::bus::bus& bus, const char* path) :
    server_interface(bus, path, interface, _vtable, this), bus_interface(bus.getInterface())
{
}

)");
    if (interface.properties.empty())
    {
        source.add(R"(
$class::~$class() = default;

)");
        return;
    }
    source.add(R"(
$class::~$class()
{
    GANTRY_LOG_DESTRUCTION();
)");
    for (const Property& property : interface.properties)
    {
        if (property.data_store_key)
        {
            source.let(words_of(property));
            source.add("    gantry::remove_key($accessor_);\n");
        }
    }
    source.add(R"(
}

)");
}

void add_methods(Source& source, const Interface& interface)
{
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add(R"(
int $class::$callback(sd_bus_message* message, void* context, sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::$call(message, *object, object->bus_interface, error, &$class::$operation);
}

)");
    }
}

/** The accessors. What can be copied only by work leaves that to the frame, which does it once for
 *  all properties of a type. */
void add_accessors(Source& source, const Property& property)
{
    source.add(R"(
$type $class::$accessor() const
{
)");
    source.add(is_number(property.type) ? "    return $accessor_;\n"
                                        : "    return gantry::get($accessor_);\n");
    source.add(R"(
}

$type $class::$accessor($type value, bool skipSignal)
{
)");
    source.add(property.data_store_key ? R"(
    return gantry::set_key($accessor_, value, skipSignal, server_interface, "$member", "$class");
)"
                                       : R"(
    return gantry::set($accessor_, value, skipSignal, server_interface, "$member");
)");
    source.add(R"(
}

$type $class::$accessor($type value)
{
)");
    source.add(is_number(property.type)
                   ? "    return $accessor(value, false);\n"
                   : "    return gantry::set_and_announce(*this, &$class::$accessor, value);\n");
    source.add(R"(
}

)");
}

void add_properties(Source& source, const Interface& interface)
{
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        add_accessors(source, property);
        source.add(R"(
int $class::$get(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::get_property<$type>(reply, *object, object->bus_interface, error, &$class::$accessor);
}

)");
        if (property.writable)
        {
            source.add(R"(
int $class::$set(sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void* context, sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::set_property<$type>(value, *object, object->bus_interface, error, &$class::$accessor);
}

)");
        }
    }
}

void add_signals(Source& source, const Interface& interface)
{
    for (const Signal& signal : interface.signals)
    {
        source.let(words_of(interface, signal));
        source.add(R"(
void $class::$operation($parameters)
{
    gantry::emit(server_interface, "$member"$passed);
}

)");
    }
}

void add_vtable(Source& source, const Interface& interface)
{
    source.add(R"(
const sd_bus_vtable $class::_vtable[] = {
    vtable::start(),
)");
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add(R"(
    vtable::method("$member", "$inputs", "$outputs", $callback$flag),
)");
    }
    for (const Signal& signal : interface.signals)
    {
        source.let(words_of(interface, signal));
        source.add(R"(
    vtable::signal("$member", "$signature"),
)");
    }
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        source.add(R"(
    vtable::property("$member", "$signature", $access, vtable::property_::$flag),
)");
    }
    source.add(R"(
    vtable::end(),
};

)");
}

void add_by_name(Source& source, const Interface& interface)
{
    source.add(R"(
namespace
{

constexpr gantry::Property<$class> rows[] = {
)");
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        source.add(R"(
    {"$member", &$class::$accessor, &$class::$accessor$silent},
)");
    }
    source.add(R"(
};

constexpr gantry::PropertyIndex index{rows};

} // namespace

const gantry::Properties $class::properties = index;

void $class::setPropertyByName(const std::string& name, const PropertyVariant& value, bool skipSignal)
{
    gantry::set_by_name(properties, *this, name, value, skipSignal);
}

$class::PropertyVariant $class::getPropertyByName(const std::string& name) const
{
    return gantry::get_by_name<PropertyVariant>(properties, *this, name);
}

)");
}

} // namespace

std::string emit_server_cpp(const Interface& interface)
{
    Source source(words_of(interface));
    source.add(R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#include <$directory/server.hpp>

)");
    add_includes(source, interface);
    if (!interface.properties.empty())
    {
        source.add(R"(

namespace
{

constexpr char source_stem[] = "server";

} // namespace
)");
    }
    source.add(R"(

namespace $server
{

)");
    add_lifecycle(source, interface);
    add_methods(source, interface);
    add_properties(source, interface);
    add_signals(source, interface);
    add_vtable(source, interface);
    if (!interface.properties.empty())
    {
        add_by_name(source, interface);
    }
    source.add(R"(
} // namespace $server
)");
    return source.text();
}

} // namespace gantrygen
