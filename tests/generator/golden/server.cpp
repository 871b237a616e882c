// Made by gantrygen from com/orvane/velmar/system/BLT/server.xml. Changes belong there.
#include <com/orvane/velmar/system/BLT/server.hpp>

#include "by_name.hpp"
#include "log.hpp"

#include <sdbusplus/vtable.hpp>

namespace
{

constexpr char source_stem[] = "server";

} // namespace

namespace sdbusplus::server::com::orvane::velmar::system
{

BLT::BLT(sdbusplus::bus::bus& bus, const char* path) :
    server_interface(bus, path, interface, _vtable, this), bus_interface(bus.getInterface())
{
}

BLT::~BLT()
{
    GANTRY_LOG_DESTRUCTION();
}

std::string BLT::key() const
{
    return gantry::get(key_);
}

std::string BLT::key(std::string value, bool skipSignal)
{
    return gantry::set(key_, value, skipSignal, server_interface, "Key");
}

std::string BLT::key(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::key, value);
}

int BLT::_callback_get_Key(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                           void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::key);
}

std::string BLT::fqdd() const
{
    return gantry::get(fqdd_);
}

std::string BLT::fqdd(std::string value, bool skipSignal)
{
    return gantry::set(fqdd_, value, skipSignal, server_interface, "fqdd");
}

std::string BLT::fqdd(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::fqdd, value);
}

int BLT::_callback_get_fqdd(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                            void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::fqdd);
}

std::string BLT::friendlyFQDD() const
{
    return gantry::get(friendlyFQDD_);
}

std::string BLT::friendlyFQDD(std::string value, bool skipSignal)
{
    return gantry::set(friendlyFQDD_, value, skipSignal, server_interface, "FriendlyFQDD");
}

std::string BLT::friendlyFQDD(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::friendlyFQDD, value);
}

int BLT::_callback_get_FriendlyFQDD(sd_bus*, const char*, const char*, const char*,
                                    sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::friendlyFQDD);
}

std::string BLT::manufacturer() const
{
    return gantry::get(manufacturer_);
}

std::string BLT::manufacturer(std::string value, bool skipSignal)
{
    return gantry::set(manufacturer_, value, skipSignal, server_interface, "Manufacturer");
}

std::string BLT::manufacturer(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::manufacturer, value);
}

int BLT::_callback_get_Manufacturer(sd_bus*, const char*, const char*, const char*,
                                    sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::manufacturer);
}

std::string BLT::productName() const
{
    return gantry::get(productName_);
}

std::string BLT::productName(std::string value, bool skipSignal)
{
    return gantry::set(productName_, value, skipSignal, server_interface, "ProductName");
}

std::string BLT::productName(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::productName, value);
}

int BLT::_callback_get_ProductName(sd_bus*, const char*, const char*, const char*,
                                   sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::productName);
}

unsigned long BLT::version() const
{
    return version_;
}

unsigned long BLT::version(unsigned long value, bool skipSignal)
{
    return gantry::set(version_, value, skipSignal, server_interface, "Version");
}

unsigned long BLT::version(unsigned long value)
{
    return version(value, false);
}

int BLT::_callback_get_Version(sd_bus*, const char*, const char*, const char*,
                               sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<unsigned long>(reply, *object, object->bus_interface, error,
                                               &BLT::version);
}

std::string BLT::firmwareVersion() const
{
    return gantry::get(firmwareVersion_);
}

std::string BLT::firmwareVersion(std::string value, bool skipSignal)
{
    return gantry::set(firmwareVersion_, value, skipSignal, server_interface, "FirmwareVersion");
}

std::string BLT::firmwareVersion(std::string value)
{
    return gantry::set_and_announce(*this, &BLT::firmwareVersion, value);
}

int BLT::_callback_get_FirmwareVersion(sd_bus*, const char*, const char*, const char*,
                                       sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<std::string>(reply, *object, object->bus_interface, error,
                                             &BLT::firmwareVersion);
}

unsigned char BLT::dohObjStatus() const
{
    return dohObjStatus_;
}

unsigned char BLT::dohObjStatus(unsigned char value, bool skipSignal)
{
    return gantry::set(dohObjStatus_, value, skipSignal, server_interface, "dohObjStatus");
}

unsigned char BLT::dohObjStatus(unsigned char value)
{
    return dohObjStatus(value, false);
}

int BLT::_callback_get_dohObjStatus(sd_bus*, const char*, const char*, const char*,
                                    sd_bus_message* reply, void* context, sd_bus_error* error)
{
    auto* object = static_cast<BLT*>(context);
    return gantry::get_property<unsigned char>(reply, *object, object->bus_interface, error,
                                               &BLT::dohObjStatus);
}

const sd_bus_vtable BLT::_vtable[] = {
    vtable::start(),
    vtable::property("Key", "s", _callback_get_Key, vtable::property_::emits_change),
    vtable::property("fqdd", "s", _callback_get_fqdd, vtable::property_::emits_change),
    vtable::property("FriendlyFQDD", "s", _callback_get_FriendlyFQDD,
                     vtable::property_::emits_change),
    vtable::property("Manufacturer", "s", _callback_get_Manufacturer,
                     vtable::property_::emits_change),
    vtable::property("ProductName", "s", _callback_get_ProductName,
                     vtable::property_::emits_change),
    vtable::property("Version", "t", _callback_get_Version, vtable::property_::emits_change),
    vtable::property("FirmwareVersion", "s", _callback_get_FirmwareVersion,
                     vtable::property_::emits_change),
    vtable::property("dohObjStatus", "y", _callback_get_dohObjStatus,
                     vtable::property_::emits_change),
    vtable::end(),
};

namespace
{

constexpr gantry::Property<BLT> rows[] = {
    {"Key", &BLT::key, &BLT::key},
    {"fqdd", &BLT::fqdd, &BLT::fqdd},
    {"FriendlyFQDD", &BLT::friendlyFQDD, &BLT::friendlyFQDD},
    {"Manufacturer", &BLT::manufacturer, &BLT::manufacturer},
    {"ProductName", &BLT::productName, &BLT::productName},
    {"Version", &BLT::version, &BLT::version},
    {"FirmwareVersion", &BLT::firmwareVersion, &BLT::firmwareVersion},
    {"dohObjStatus", &BLT::dohObjStatus, &BLT::dohObjStatus},
};

constexpr gantry::PropertyIndex index{rows};

} // namespace

const gantry::Properties BLT::properties = index;

void BLT::setPropertyByName(const std::string& name, const PropertyVariant& value, bool skipSignal)
{
    gantry::set_by_name(properties, *this, name, value, skipSignal);
}

BLT::PropertyVariant BLT::getPropertyByName(const std::string& name) const
{
    return gantry::get_by_name<PropertyVariant>(properties, *this, name);
}

} // namespace sdbusplus::server::com::orvane::velmar::system
