#include "usb.hpp"

#include "publish.hpp"

#include <com/orvane/velmar/system/USB/gantry_server.hpp>

namespace
{

using GANTRY_com_orvane_velmar_system_USB::USB;
using Server = sdbusplus::server::com::orvane::velmar::system::USB;

/** An attribute's file, and the operation that takes what it holds. */
template <class Value>
struct Attribute
{
    const char* file;
    Value (Server::*set)(Value value, bool skip_signal);
};

constexpr Attribute<std::string> texts[] = {
    {"manufacturer", &Server::manufacturer},
    {"product", &Server::productName},
    {"serial", &Server::serialNumber},
    {"bMaxPower", &Server::maxPower},
};

constexpr Attribute<unsigned short> words[] = {
    {"idVendor", &Server::vendorID},
    {"idProduct", &Server::productID},
    {"bcdDevice", &Server::deviceVersion},
};

constexpr Attribute<unsigned char> codes[] = {
    {"bDeviceClass", &Server::deviceClass},
    {"bDeviceSubClass", &Server::deviceSubClass},
    {"bDeviceProtocol", &Server::deviceProtocol},
};

template <class Value, std::size_t count>
void read_numbers(Server& object, const sysfs::Directory& device,
                  const Attribute<Value> (&attributes)[count])
{
    for (const auto& [file, set] : attributes)
    {
        sysfs::put<Value>(sysfs::hexadecimal(device / file),
                          [&, setter = set](Value value) { (object.*setter)(value, true); });
    }
}

/** The version as the device tells it, in binary coded decimals, from its spelling: " 3.20" is
 *  0x0320. */
std::optional<unsigned int> coded_version(const sysfs::Directory& file)
{
    auto spelling = sysfs::text(file);
    if (!spelling)
    {
        return std::nullopt;
    }
    unsigned int version = 0;
    for (const char letter : *spelling)
    {
        if (letter >= '0' && letter <= '9')
        {
            version = version << 4U | static_cast<unsigned int>(letter - '0');
        }
        else if (letter != ' ' && letter != '.')
        {
            return std::nullopt;
        }
    }
    return version;
}

} // namespace

void publish_usb_devices(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    constexpr auto prefix = "/com/orvane/velmar/system/USB";
    for (const auto& device : sysfs::entries(sys / "bus/usb/devices"))
    {
        // A device's interfaces are listed too: 1-2:1.0 is one of 1-2.
        const std::string name = device.filename();
        auto* object = name.find(':') == std::string::npos
                           ? publish<USB>(context, GANTRY_instantiate__com_orvane_velmar_system_USB,
                                          path_of(prefix, name).c_str())
                           : nullptr;
        if (object == nullptr)
        {
            continue;
        }
        constexpr bool skip_signal = true;
        object->key("USB." + name, skip_signal);
        object->fqdd("USB." + name, skip_signal);
        object->friendlyFQDD("USB device " + name, skip_signal);
        for (const auto& [file, set] : texts)
        {
            if (const auto text = sysfs::text(device / file))
            {
                (object->*set)(*text, skip_signal);
            }
        }
        read_numbers(*object, device, words);
        read_numbers(*object, device, codes);
        sysfs::put<unsigned short>(coded_version(device / "version"), [&](unsigned short version)
                                   { object->usbVersion(version, skip_signal); });
    }
}
