#include "templates.hpp"

namespace gantrygen::templates
{

const std::string_view server_hpp = R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#pragma once

#include <gantry/export.h>

#include <systemd/sd-bus.h>

#include <sdbusplus/bus.hpp>
#include <sdbusplus/sdbus.hpp>
#include <sdbusplus/server/interface.hpp>
%each headers
#include <$header>
%end
%if properties

namespace gantry
{
class Properties;
} // namespace gantry
%end

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

%if comment
/** $comment */
%end
class GANTRY_API $class : public $common::$class
{
  public:
    $class(sdbusplus::bus_t& bus, const char* path);
    $class(const $class&) = delete;
    $class& operator=(const $class&) = delete;
    virtual ~$class();

%if methods
%each methods
%if comment
    /** $comment */
%end
    virtual $result $operation($parameters) = 0;
%end

%end
%if properties
    // A setter stores a value that differs from the present one, and announces it unless `skipSignal`
    // is true. It throws SdBusError with EMSGSIZE for a value that no message can hold, and what a
    // getter throws that the announcement runs; then the value is stored.

%end
%each properties
%if comment
    /** $comment */
%end
    virtual $type $accessor() const;
    virtual $type $accessor($type value, bool skipSignal);
    virtual $type $accessor($type value);

%end
%if signals
%each signals
%if comment
    /** $comment */
%end
    void $operation($parameters);
%end

%end
%if properties
    using PropertyVariant = $variant;

    // By a property's D-Bus name. An unknown name changes nothing, and reads as a variant that holds
    // the first of its types. A value of another type throws std::bad_variant_access.
    void setPropertyByName(
        const std::string& name, const PropertyVariant& value, bool skipSignal = false);
    PropertyVariant getPropertyByName(const std::string& name) const;

%end
%if methods
%each methods
    static int $callback(sd_bus_message*, void*, sd_bus_error*);
%end

%end
%if properties
    using PropertyCallback = int(sd_bus*, const char*, const char*, const char*, sd_bus_message*,
        void*, sd_bus_error*);

%each properties
    static PropertyCallback $get;
%if writable
    static PropertyCallback $set;
%end
%end

%end
    static const sd_bus_vtable _vtable[];

%if properties
  protected:
    GANTRY_HIDDEN static const gantry::Properties properties;

%end
  private:
    sdbusplus::server::interface_t server_interface;
    sdbusplus::SdBusInterface* bus_interface;
%if properties

%each properties
    $type $accessor_$start;
%end
%end
};

} // namespace $server
)";

const std::string_view server_cpp = R"(
// Made by gantrygen from $directory/server.xml. Changes belong there.
#include <$directory/server.hpp>

%if properties
#include "log.hpp"
#include "property_by_name.hpp"
#include "property_callbacks.hpp"
#include "waiting_changes.hpp"
%end
%if methods
#include "method_adapter.hpp"
%end
%if signals
#include "signal.hpp"
%end

#include <sdbusplus/vtable.hpp>

namespace $server
{

%if properties
namespace
{

constexpr char source_stem[] = "server";

/** The positions of the rows below. */
enum Row : std::uint8_t
{
    interface,
%each properties
    $accessor,
%end
};

constexpr gantry::Property<$class> rows[] = {
    {$class::interface, $class::_vtable},
%each properties
    {Row::$accessor, "$member",
        &$class::$accessor, &$class::$accessor$silent},
%end
};

constexpr gantry::PropertyIndex index{rows};

} // namespace

const gantry::Properties $class::properties = index;

%end
$class::$class(sdbusplus::bus_t& bus, const char* path) :
    server_interface(bus, path, interface, _vtable, this), bus_interface(bus.getInterface())
{
}

%if properties
$class::~$class()
{
    GANTRY_LOG_DESTRUCTION();
    gantry::forget_changes_of(*this);
%each properties
%if key
    gantry::remove_key($accessor_);
%end
%end
}
%else
$class::~$class() = default;
%end

%each methods
int $class::$callback(sd_bus_message* message, void* context, sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::$call(
        message, *object, object->bus_interface, error, &$class::$operation);
}

%end
%each properties
$type $class::$accessor() const
{
%if number
    return $accessor_;
%else
    return gantry::copy_of($accessor_);
%end
}

$type $class::$accessor($type value, bool skipSignal)
{
%if key
    return gantry::set_key($accessor_, value, skipSignal,
        *this, rows[Row::$accessor], "$class");
%else
    return gantry::set($accessor_, value, skipSignal, *this, rows[Row::$accessor]);
%end
}

$type $class::$accessor($type value)
{
%if number
    return $accessor(value, false);
%else
    return gantry::set_and_announce(*this, &$class::$accessor, value);
%end
}

int $class::$get(
    sd_bus* bus, const char*, const char*, const char*, sd_bus_message* reply, void* context,
    sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::get_property<$type>(
        bus, &$class::$accessor, object->bus_interface, reply, *object, error);
}

%if writable
int $class::$set(
    sd_bus*, const char*, const char*, const char*, sd_bus_message* value, void* context,
    sd_bus_error* error)
{
    auto* object = static_cast<$class*>(context);
    return gantry::set_property<$type>(
        value, *object, object->bus_interface, error,
        {gantry::row_of(rows[Row::$accessor]), properties}, &$class::$accessor);
}

%end
%end
%each signals
void $class::$operation($parameters)
{
    gantry::emit(*this, "$member"$passed);
}

%end
const sd_bus_vtable $class::_vtable[] = {
    vtable::start(),
%each methods
    vtable::method("$member", "$inputs", "$outputs",
        $callback$flag),
%end
%each signals
    vtable::signal("$member", "$signature"),
%end
%each properties
    vtable::property("$member", "$signature",
        $access, vtable::property_::$flag),
%end
    vtable::end(),
};

%if properties
void $class::setPropertyByName(
    const std::string& name, const PropertyVariant& value, bool skipSignal)
{
    gantry::set_by_name(properties, *this, name, value, skipSignal);
}

$class::PropertyVariant $class::getPropertyByName(const std::string& name) const
{
    return gantry::get_by_name<PropertyVariant>(properties, *this, name);
}

%end
} // namespace $server
)";

} // namespace gantrygen::templates
