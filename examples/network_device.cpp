#include "network_device.hpp"

#include <ctime>
#include <system_error>

std::vector<sysfs::Directory> network_devices(const sysfs::Directory& sys)
{
    auto devices = sysfs::entries(sys / "class/net");
    // The bonding driver puts a file of its own among them.
    std::erase_if(devices,
                  [](const sysfs::Directory& device)
                  {
                      std::error_code error;
                      return !std::filesystem::is_directory(device, error);
                  });
    return devices;
}

std::string port_fqdd(const sysfs::Directory& device)
{
    return "NIC." + device.filename().string();
}

std::optional<LinkStatus> link_status(const sysfs::Directory& device)
{
    const auto state = sysfs::text(device / "operstate");
    if (!state)
    {
        return std::nullopt;
    }
    return *state == "up" ? link_up : *state == "down" ? link_down : link_unknown;
}

std::optional<ReceivedPackets> received_packets(const sysfs::Directory& device)
{
    const auto all = sysfs::number(device / "statistics/rx_packets");
    const auto multicast = sysfs::number(device / "statistics/multicast");
    if (!all || !multicast || *all < *multicast)
    {
        return std::nullopt;
    }
    return ReceivedPackets{*all - *multicast, *multicast};
}

unsigned int now()
{
    return static_cast<unsigned int>(std::time(nullptr));
}
