#include "emit.hpp"
#include "source.hpp"

#include <algorithm>
#include <set>

namespace gantrygen
{
namespace
{

/** Collects the standard headers that declare the type. */
void add_headers(const Type& type, std::set<std::string>& headers)
{
    switch (type.kind)
    {
    case Type::Kind::string:
        headers.insert("string");
        break;
    case Type::Kind::array:
        headers.insert("vector");
        break;
    case Type::Kind::set:
        headers.insert("set");
        break;
    case Type::Kind::dict:
        headers.insert("map");
        break;
    case Type::Kind::structure:
        headers.insert("tuple");
        break;
    case Type::Kind::variant:
        headers.insert("variant");
        break;
    default:
        break;
    }
    for (const Type& member : type.members)
    {
        add_headers(member, headers);
    }
}

void add_headers(const std::vector<Argument>& arguments, std::set<std::string>& headers)
{
    for (const Argument& argument : arguments)
    {
        add_headers(argument.type, headers);
    }
}

void add_headers(const Method& method, std::set<std::string>& headers)
{
    if (method.shape == Method::Shape::message)
    {
        headers.insert("sdbusplus/message.hpp");
        return;
    }
    add_headers(method.inputs, headers);
    add_headers(method.outputs, headers);
    if (method.outputs.size() > 1)
    {
        headers.insert("tuple");
    }
}

void add_includes(Source& source, const Interface& interface)
{
    std::set<std::string> headers{"sdbusplus/bus.hpp", "sdbusplus/sdbus.hpp",
                                  "sdbusplus/server/interface.hpp"};
    for (const Method& method : interface.methods)
    {
        add_headers(method, headers);
    }
    for (const Signal& signal : interface.signals)
    {
        add_headers(signal.arguments, headers);
    }
    if (!interface.properties.empty())
    {
        headers.insert("string");
        add_headers(property_variant(interface), headers);
    }
    for (const std::string& header : headers)
    {
        source.let({{"header", header}});
        source.add("#include <$header>\n");
    }
}

void add_methods(Source& source, const Interface& interface)
{
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add("    virtual $result $operation($parameters) = 0;\n");
    }
    if (!interface.methods.empty())
    {
        source.blank();
    }
}

void add_accessors(Source& source, const Interface& interface)
{
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        source.add(R"(
    virtual $type $accessor() const;
    virtual $type $accessor($type value, bool skipSignal);
    virtual $type $accessor($type value);

)");
    }
}

void add_signals(Source& source, const Interface& interface)
{
    for (const Signal& signal : interface.signals)
    {
        source.let(words_of(interface, signal));
        source.add("    void $operation($parameters);\n");
    }
    if (!interface.signals.empty())
    {
        source.blank();
    }
}

void add_by_name(Source& source, const Interface& interface)
{
    if (!interface.properties.empty())
    {
        source.let({{"variant", cpp_type(property_variant(interface))}});
        source.add(R"(
    using PropertyVariant = $variant;

    void setPropertyByName(const std::string& name, const PropertyVariant& value, bool skipSignal = false);
    PropertyVariant getPropertyByName(const std::string& name) const;

)");
    }
}

void add_callbacks(Source& source, const Interface& interface)
{
    for (std::size_t slot = 0; slot < interface.methods.size(); ++slot)
    {
        source.let(words_of(interface.methods[slot], slot));
        source.add("    static int $callback(sd_bus_message*, void*, sd_bus_error*);\n");
    }
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        source.add(R"(
    static int $get(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*);
)");
        if (property.writable)
        {
            source.add(R"(
    static int $set(sd_bus*, const char*, const char*, const char*, sd_bus_message*, void*, sd_bus_error*);
)");
        }
    }
    if (!interface.methods.empty() || !interface.properties.empty())
    {
        source.blank();
    }
}

void add_data_members(Source& source, const Interface& interface)
{
    source.add(R"(
    sdbusplus::server::interface::interface server_interface;
    sdbusplus::SdBusInterface* bus_interface;
)");
    if (!interface.properties.empty())
    {
        source.blank();
    }
    for (const Property& property : interface.properties)
    {
        source.let(words_of(property));
        source.add("    $type $accessor_$start;\n");
    }
}

} // namespace

std::string emit_server_hpp(const Interface& interface)
{
    Source source(words_of(interface));
    source.add(R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#pragma once

#include <gantry/export.h>

#include <systemd/sd-bus.h>

)");
    add_includes(source, interface);
    if (!interface.properties.empty())
    {
        source.add(R"(

namespace gantry
{
class Properties;
} // namespace gantry
)");
    }
    source.add(R"(

namespace $common
{

class $class
{
  public:
    static constexpr auto interface = "$interface";
};

} // namespace $common

namespace $server
{

class GANTRY_API $class : public $common::$class
{
  public:
    $class(sdbusplus::bus::bus& bus, const char* path);
    $class(const $class&) = delete;
    $class($class&&) = delete;
    $class& operator=(const $class&) = delete;
    $class& operator=($class&&) = delete;
    virtual ~$class();

)");
    add_methods(source, interface);
    add_accessors(source, interface);
    add_signals(source, interface);
    add_by_name(source, interface);
    add_callbacks(source, interface);
    source.add(R"(
    static const sd_bus_vtable _vtable[];

)");
    if (!interface.properties.empty())
    {
        source.add(R"(
  protected:
    GANTRY_HIDDEN static const gantry::Properties properties;

)");
    }
    source.add("  private:\n");
    add_data_members(source, interface);
    source.add(R"(
};

} // namespace $server
)");
    return source.text();
}

} // namespace gantrygen
