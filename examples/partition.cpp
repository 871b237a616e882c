#include "partition.hpp"

#include "network_device.hpp"
#include "pci_location.hpp"
#include "publish.hpp"

#include <com/orvane/velmar/system/NicPartition/gantry_server.hpp>

#include <system_error>

namespace
{

using GANTRY_com_orvane_velmar_system_NicPartition::NicPartition;
using Server = sdbusplus::server::com::orvane::velmar::system::NicPartition;

// The codes of this host.
enum DriverState : unsigned char
{
    driver_unknown = 0,
    driver_bound = 1,
};

/** A counter's file, and the operation that takes what it holds. */
struct Counter
{
    const char* file;
    unsigned long (Server::*set)(unsigned long count, bool skip_signal);
    unsigned long unit = 1;
};

constexpr Counter counters[] = {
    {"rx_bytes", &Server::lanBytesRxCount},
    {"tx_bytes", &Server::lanBytesTxCount},
    {"tx_packets", &Server::lanUnicastPktTXCount},
};

// Of data, the adapters count words.
constexpr Counter rdma_counters[] = {
    {"port_rcv_packets", &Server::rdmaRxTotalPackets},
    {"port_xmit_packets", &Server::rdmaTxTotalPackets},
    {"port_rcv_data", &Server::rdmaRxTotalBytes, 4},
    {"port_xmit_data", &Server::rdmaTxTotalBytes, 4},
};

void read_counter(Server& object, const Counter& counter, const sysfs::Directory& directory,
                  bool skip_signal)
{
    if (const auto count = sysfs::number(directory / counter.file))
    {
        (object.*counter.set)(*count * counter.unit, skip_signal);
    }
}

void read(Server& object, const sysfs::Directory& device, bool skip_signal)
{
    if (const auto status = link_status(device))
    {
        object.partitionLinkStatus(*status, skip_signal);
    }
    for (const Counter& counter : counters)
    {
        read_counter(object, counter, device / "statistics", skip_signal);
    }
    if (const auto received = received_packets(device))
    {
        object.lanUnicastPktRXCount(received->unicast, skip_signal);
        sysfs::put<unsigned int>(std::optional{received->multicast}, [&](unsigned int count)
                                 { object.lanMulticastPktRxCount(count, skip_signal); });
    }
    for (const auto& adapter : sysfs::entries(device / "device/infiniband"))
    {
        // The network interface counts its adapter's ports from 0, the adapter from 1.
        const auto port = sysfs::number(device / "dev_port").value_or(0) + 1;
        for (const Counter& counter : rdma_counters)
        {
            read_counter(object, counter, adapter / "ports" / std::to_string(port) / "counters",
                         skip_signal);
        }
    }
    object.statisticsTime(now(), skip_signal);
}

/** The location of the PCI device that the network interface stands for. */
std::optional<PciLocation> location_of(const sysfs::Directory& device)
{
    std::error_code error;
    const auto parent = std::filesystem::canonical(device / "device", error);
    if (error)
    {
        return std::nullopt;
    }
    // A virtual machine's adapter is one step below its PCI device.
    const auto location = pci_location(parent.filename());
    return location ? location : pci_location(parent.parent_path().filename());
}

void describe(Server& object, const sysfs::Directory& device)
{
    constexpr bool skip_signal = true;
    constexpr std::uint64_t permanent = 0;
    constexpr std::uint64_t infiniband = 32;

    object.fqdd(port_fqdd(device) + "-1", skip_signal);
    object.friendlyFQDD("Partition 1 of network port " + device.filename().string(), skip_signal);
    object.statisticsStartTime(now(), skip_signal);
    if (const auto location = location_of(device))
    {
        object.pciBus(location->bus, skip_signal);
        object.pciDevice(location->device, skip_signal);
        object.pciFunction(location->function, skip_signal);
    }
    sysfs::put<unsigned short>(sysfs::number(device / "device/numa_node"),
                               [&](unsigned short node) { object.cpuAffinity(node, skip_signal); });

    // Where the address comes from says which of the two it is.
    const auto address = sysfs::text(device / "address");
    const auto origin = sysfs::number(device / "addr_assign_type");
    if (address && origin)
    {
        *origin == permanent ? object.permanentMACAddress(*address, skip_signal)
                             : object.virtualMACAddress(*address, skip_signal);
    }

    if (const auto driver = sysfs::link_name(device / "device/driver"))
    {
        object.partitionOSDriverState(driver_bound, skip_signal);
        if (sysfs::number(device / "type") == infiniband)
        {
            object.infiniBandOSDriver(*driver, skip_signal);
        }
        if (!sysfs::entries(device / "device/infiniband").empty())
        {
            object.rdmaosDriver(*driver, skip_signal);
        }
    }
}

} // namespace

NetworkPartitions::NetworkPartitions(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    constexpr auto prefix = "/com/orvane/velmar/system/NicPartition";
    for (const auto& device : network_devices(sys))
    {
        auto* object = publish<NicPartition>(
            context, GANTRY_instantiate__com_orvane_velmar_system_NicPartition,
            path_of(prefix, device.filename()).c_str());
        if (object != nullptr)
        {
            describe(*object, device);
            read(*object, device, true);
            partitions.push_back({device, object});
        }
    }
}

void NetworkPartitions::refresh()
{
    for (const auto& partition : partitions)
    {
        read(*partition.object, partition.device, false);
    }
}
