// Made by gantrygen from com/orvane/velmar/system/BLT/server.xml. Changes belong there.
#pragma once

#include <gantry/export.h>

#include <systemd/sd-bus.h>

#include <sdbusplus/bus.hpp>
#include <sdbusplus/sdbus.hpp>
#include <sdbusplus/server/interface.hpp>
#include <string>
#include <variant>

namespace gantry
{
class Properties;
} // namespace gantry

namespace sdbusplus::common::com::orvane::velmar::system
{

class BLT
{
  public:
    static constexpr auto interface = "com.orvane.velmar.system.BLT";
};

} // namespace sdbusplus::common::com::orvane::velmar::system

namespace sdbusplus::server::com::orvane::velmar::system
{

class GANTRY_API BLT : public sdbusplus::common::com::orvane::velmar::system::BLT
{
  public:
    BLT(sdbusplus::bus::bus& bus, const char* path);
    BLT(const BLT&) = delete;
    BLT(BLT&&) = delete;
    BLT& operator=(const BLT&) = delete;
    BLT& operator=(BLT&&) = delete;
    virtual ~BLT();

    virtual std::string key() const;
    virtual std::string key(std::string value, bool skipSignal);
    virtual std::string key(std::string value);

    virtual std::string fqdd() const;
    virtual std::string fqdd(std::string value, bool skipSignal);
    virtual std::string fqdd(std::string value);

    virtual std::string friendlyFQDD() const;
    virtual std::string friendlyFQDD(std::string value, bool skipSignal);
    virtual std::string friendlyFQDD(std::string value);

    virtual std::string manufacturer() const;
    virtual std::string manufacturer(std::string value, bool skipSignal);
    virtual std::string manufacturer(std::string value);

    virtual std::string productName() const;
    virtual std::string productName(std::string value, bool skipSignal);
    virtual std::string productName(std::string value);

    virtual unsigned long version() const;
    virtual unsigned long version(unsigned long value, bool skipSignal);
    virtual unsigned long version(unsigned long value);

    virtual std::string firmwareVersion() const;
    virtual std::string firmwareVersion(std::string value, bool skipSignal);
    virtual std::string firmwareVersion(std::string value);

    virtual unsigned char dohObjStatus() const;
    virtual unsigned char dohObjStatus(unsigned char value, bool skipSignal);
    virtual unsigned char dohObjStatus(unsigned char value);

    using PropertyVariant = std::variant<std::string, unsigned long, unsigned char>;

    void setPropertyByName(const std::string& name, const PropertyVariant& value,
                           bool skipSignal = false);
    PropertyVariant getPropertyByName(const std::string& name) const;

    static int _callback_get_Key(sd_bus*, const char*, const char*, const char*, sd_bus_message*,
                                 void*, sd_bus_error*);
    static int _callback_get_fqdd(sd_bus*, const char*, const char*, const char*, sd_bus_message*,
                                  void*, sd_bus_error*);
    static int _callback_get_FriendlyFQDD(sd_bus*, const char*, const char*, const char*,
                                          sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_Manufacturer(sd_bus*, const char*, const char*, const char*,
                                          sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_ProductName(sd_bus*, const char*, const char*, const char*,
                                         sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_Version(sd_bus*, const char*, const char*, const char*,
                                     sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_FirmwareVersion(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_dohObjStatus(sd_bus*, const char*, const char*, const char*,
                                          sd_bus_message*, void*, sd_bus_error*);

    static const sd_bus_vtable _vtable[];

  protected:
    GANTRY_HIDDEN static const gantry::Properties properties;

  private:
    sdbusplus::server::interface::interface server_interface;
    sdbusplus::SdBusInterface* bus_interface;

    std::string key_;
    std::string fqdd_;
    std::string friendlyFQDD_;
    std::string manufacturer_;
    std::string productName_;
    unsigned long version_ = 0;
    std::string firmwareVersion_;
    unsigned char dohObjStatus_ = 1;
};

} // namespace sdbusplus::server::com::orvane::velmar::system
