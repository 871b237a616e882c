#include "network.hpp"

#include "network_device.hpp"
#include "publish.hpp"

#include <com/orvane/velmar/system/NicController/gantry_server.hpp>
#include <com/orvane/velmar/system/NicPort/gantry_server.hpp>

namespace
{

using GANTRY_com_orvane_velmar_system_NicController::NicController;
using GANTRY_com_orvane_velmar_system_NicPort::NicPort;

// The codes of this host, as those of a link's status.
enum LinkDuplex : unsigned char
{
    duplex_unknown = 0,
    duplex_full = 1,
    duplex_half = 2,
};

/** In a byte there is room for a code, not for a rate. */
constexpr unsigned char speed_unknown = 255;

unsigned char speed_code(std::uint64_t megabits)
{
    switch (megabits)
    {
    case 10:
        return 1;
    case 100:
        return 2;
    case 1000:
        return 3;
    case 2500:
        return 4;
    case 5000:
        return 5;
    case 10000:
        return 6;
    case 25000:
        return 7;
    case 40000:
        return 8;
    case 50000:
        return 9;
    case 100000:
        return 10;
    default:
        return speed_unknown;
    }
}

} // namespace

NetworkPorts::NetworkPorts(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    constexpr auto prefix = "/com/orvane/velmar/system/NicPort";
    for (const auto& device : network_devices(sys))
    {
        const std::string name = device.filename();
        auto* object =
            publish<NicPort>(context, GANTRY_instantiate__com_orvane_velmar_system_NicPort,
                             path_of(prefix, name).c_str());
        if (object == nullptr)
        {
            continue;
        }
        constexpr bool skip_signal = true;
        object->fqdd(port_fqdd(device), skip_signal);
        object->friendlyFQDD("Network port " + name, skip_signal);
        object->statisticsStartTime(now(), skip_signal);
        object->partitionCount(1, skip_signal);
        sysfs::put<unsigned short>(sysfs::number(device / "type"), [&](unsigned short type)
                                   { object->mediaType(type, skip_signal); });
        ports.push_back({device, object});
        read(ports.back(), skip_signal);
    }

    if (auto* controller = publish<NicController>(
            context, GANTRY_instantiate__com_orvane_velmar_system_NicController))
    {
        sysfs::put<unsigned char>(std::optional{ports.size()}, [&](unsigned char count)
                                  { controller->portsCount(count, true); });
    }
}

void NetworkPorts::refresh()
{
    for (const auto& port : ports)
    {
        read(port, false);
    }
}

void NetworkPorts::read(const Port& port, bool skip_signal)
{
    auto& object = *port.object;
    if (const auto status = link_status(port.device))
    {
        object.linkStatus(*status, skip_signal);
    }
    // The kernel refuses to tell the speed of a port that is down.
    object.linkSpeed(speed_code(sysfs::number(port.device / "speed").value_or(0)), skip_signal);
    const auto duplex = sysfs::text(port.device / "duplex").value_or("unknown");
    object.linkDuplex(duplex == "full"   ? duplex_full
                      : duplex == "half" ? duplex_half
                                         : duplex_unknown,
                      skip_signal);

    const auto statistics = port.device / "statistics";
    sysfs::put<unsigned long>(sysfs::number(statistics / "rx_bytes"), [&](unsigned long count)
                              { object.receiveTotalBytes(count, skip_signal); });
    sysfs::put<unsigned long>(sysfs::number(statistics / "tx_bytes"), [&](unsigned long count)
                              { object.transmitTotalBytes(count, skip_signal); });
    if (const auto received = received_packets(port.device))
    {
        object.receiveTotalUnicast(received->unicast, skip_signal);
        object.receiveTotalMulticast(received->multicast, skip_signal);
    }
    sysfs::put<unsigned long>(sysfs::number(statistics / "tx_packets"), [&](unsigned long count)
                              { object.transmitTotalUnicast(count, skip_signal); });
    sysfs::put<unsigned int>(sysfs::number(statistics / "rx_crc_errors"), [&](unsigned int count)
                             { object.receiveErrorPktFCSErrors(count, skip_signal); });
    sysfs::put<unsigned int>(sysfs::number(statistics / "rx_frame_errors"), [&](unsigned int count)
                             { object.receiveErrorPktAlignmentErrors(count, skip_signal); });
    sysfs::put<unsigned int>(sysfs::number(statistics / "rx_length_errors"), [&](unsigned int count)
                             { object.receiveRuntPkt(count, skip_signal); });
    sysfs::put<unsigned int>(sysfs::number(statistics / "rx_dropped"),
                             [&](unsigned int count) { object.discardedPkts(count, skip_signal); });
    sysfs::put<unsigned int>(sysfs::number(statistics / "collisions"), [&](unsigned int count)
                             { object.transmitErrorPktMultipleCollision(count, skip_signal); });
    object.statisticsTime(now(), skip_signal);
}
