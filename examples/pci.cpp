#include "pci.hpp"

#include "pci_location.hpp"
#include "publish.hpp"

#include <com/orvane/velmar/hwi/HWIPcie/gantry_server.hpp>
#include <com/orvane/velmar/hwi/HWIStndConfig/gantry_server.hpp>

#include <systemd/sd-hwdb.h>

#include <array>
#include <cmath>

namespace
{

using GANTRY_com_orvane_velmar_hwi_HWIPcie::HWIPcie;
using GANTRY_com_orvane_velmar_hwi_HWIStndConfig::HWIStndConfig;

/** The system's hardware database, which has names for ids. Its absence is normal. */
class NameDatabase
{
  public:
    NameDatabase()
    {
        if (sd_hwdb_new(&database) < 0)
        {
            database = nullptr;
        }
    }
    ~NameDatabase()
    {
        sd_hwdb_unref(database);
    }
    NameDatabase(const NameDatabase&) = delete;
    NameDatabase(NameDatabase&&) = delete;
    NameDatabase& operator=(const NameDatabase&) = delete;
    NameDatabase& operator=(NameDatabase&&) = delete;

    /** What the database has under `key` for the device, by its modalias. */
    [[nodiscard]] std::optional<std::string> look_up(const sysfs::Directory& device,
                                                     const char* key) const
    {
        const auto modalias = sysfs::text(device / "modalias");
        const char* value = nullptr;
        if (database == nullptr || !modalias ||
            sd_hwdb_get(database, modalias->c_str(), key, &value) < 0)
        {
            return std::nullopt;
        }
        return value;
    }

  private:
    sd_hwdb* database = nullptr;
};

/** GT/s as MT/s: 2.5 is 2500. */
std::optional<unsigned int> transfer_rate(const sysfs::Directory& file)
{
    const auto rate = sysfs::leading_number(file);
    return rate ? std::optional{static_cast<unsigned int>(std::lround(*rate * 1000))}
                : std::nullopt;
}

/** The PCI Express generation of a transfer rate. */
std::optional<unsigned int> generation(std::optional<unsigned int> rate)
{
    constexpr std::array<unsigned int, 6> rates{2500, 5000, 8000, 16000, 32000, 64000};
    for (std::size_t index = 0; rate && index < rates.size(); ++index)
    {
        if (rates[index] == *rate)
        {
            return static_cast<unsigned int>(index) + 1;
        }
    }
    return std::nullopt;
}

/** The device/port type of the PCI Express capability, if the device has one. */
std::optional<unsigned int> port_type(const std::vector<unsigned char>& configuration)
{
    constexpr std::size_t status = 0x06;
    constexpr unsigned int has_capabilities = 0x10;
    constexpr std::size_t first_capability = 0x34;
    constexpr unsigned char pci_express = 0x10;

    const auto at = [&](std::size_t offset) -> unsigned int
    { return offset < configuration.size() ? configuration[offset] : 0U; };
    if ((at(status) & has_capabilities) == 0)
    {
        return std::nullopt;
    }
    // A list that runs in a circle must not hold us.
    std::size_t offset = at(first_capability) & 0xFCU;
    for (int capability = 0; offset != 0 && capability < 48; ++capability)
    {
        if (at(offset) == pci_express)
        {
            return at(offset + 2) >> 4U;
        }
        offset = at(offset + 1) & 0xFCU;
    }
    return std::nullopt;
}

/** The names that both objects of a device have. */
template <class Object>
void put_names(Object& object, const sysfs::Directory& device, const NameDatabase& names)
{
    sysfs::put<std::string>(names.look_up(device, "ID_VENDOR_FROM_DATABASE"),
                            [&](const std::string& name) { object.manufacturer(name, true); });
    sysfs::put<std::string>(names.look_up(device, "ID_MODEL_FROM_DATABASE"),
                            [&](const std::string& name) { object.productName(name, true); });
}

void publish_configuration(GANTRY_cpp_context& context, const sysfs::Directory& device,
                           const NameDatabase& names)
{
    constexpr auto prefix = "/com/orvane/velmar/hwi/HWIStndConfig";
    const std::string address = device.filename();
    auto* object =
        publish<HWIStndConfig>(context, GANTRY_instantiate__com_orvane_velmar_hwi_HWIStndConfig,
                               path_of(prefix, address).c_str());
    if (object == nullptr)
    {
        return;
    }

    // Nobody has seen the object yet: there is nothing to announce.
    constexpr bool skip_signal = true;
    object->fqdd("PCI." + address, skip_signal);
    object->friendlyFQDD("PCI device " + address, skip_signal);
    if (const auto location = pci_location(address))
    {
        object->segmentNum(location->segment, skip_signal);
        object->busNum(location->bus, skip_signal);
        object->deviceNum(location->device, skip_signal);
        object->functionNum(location->function, skip_signal);
    }
    sysfs::put<unsigned short>(sysfs::number(device / "vendor"),
                               [&](unsigned short id) { object->vendorID(id, skip_signal); });
    sysfs::put<unsigned short>(sysfs::number(device / "subsystem_vendor"),
                               [&](unsigned short id) { object->subVendorID(id, skip_signal); });
    sysfs::put<unsigned short>(sysfs::number(device / "subsystem_device"),
                               [&](unsigned short id) { object->subDeviceID(id, skip_signal); });
    if (const auto code = sysfs::number(device / "class"))
    {
        object->classCode(static_cast<unsigned char>(*code >> 16U), skip_signal);
        object->subclass(static_cast<unsigned char>(*code >> 8U), skip_signal);
        object->progIF(static_cast<unsigned char>(*code), skip_signal);
    }
    constexpr std::size_t header_type = 0x0E;
    if (const auto configuration = sysfs::bytes(device / "config", header_type + 1);
        configuration.size() > header_type)
    {
        object->pcIheaderType(configuration[header_type], skip_signal);
    }
    sysfs::put<unsigned char>(sysfs::number(device / "numa_node"),
                              [&](unsigned char node) { object->cpuAffinity(node, skip_signal); });
    put_names(*object, device, names);
    sysfs::put<std::string>(names.look_up(device, "ID_PCI_SUBCLASS_FROM_DATABASE"),
                            [&](const std::string& name)
                            { object->description(name, skip_signal); });
}

void publish_link(GANTRY_cpp_context& context, const sysfs::Directory& device,
                  const NameDatabase& names)
{
    constexpr auto prefix = "/com/orvane/velmar/hwi/HWIPcie";
    auto* object = publish<HWIPcie>(context, GANTRY_instantiate__com_orvane_velmar_hwi_HWIPcie,
                                    path_of(prefix, device.filename()).c_str());
    if (object == nullptr)
    {
        return;
    }

    constexpr bool skip_signal = true;
    sysfs::put<unsigned int>(transfer_rate(device / "current_link_speed"), [&](unsigned int rate)
                             { object->currentLinkSpeed(rate, skip_signal); });
    const auto fastest = transfer_rate(device / "max_link_speed");
    sysfs::put<unsigned int>(fastest,
                             [&](unsigned int rate) { object->maxLinkSpeed(rate, skip_signal); });
    sysfs::put<unsigned char>(generation(fastest), [&](unsigned char number)
                              { object->supportedLinkSpeed(number, skip_signal); });
    sysfs::put<unsigned char>(sysfs::number(device / "max_link_width"), [&](unsigned char lanes)
                              { object->maxLinkWidth(lanes, skip_signal); });
    sysfs::put<unsigned char>(port_type(sysfs::bytes(device / "config", 256)),
                              [&](unsigned char type) { object->portType(type, skip_signal); });
    put_names(*object, device, names);
}

} // namespace

void publish_pci_devices(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    const NameDatabase names;
    for (const auto& device : sysfs::entries(sys / "bus/pci/devices"))
    {
        publish_configuration(context, device, names);
        publish_link(context, device, names);
    }
}
