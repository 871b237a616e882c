#include "attribute.h"
#include "ethtool.h"
#include "nic.h"
#include "pci_location.h"
#include "sysfs.h"

#include <inttypes.h>
#include <linux/if_arp.h>
#include <stdio.h>
#include <string.h>

static const struct nic_counter counters[] = {
    {"LanBytesRxCount", object_put_uint64, offsetof(struct rtnl_link_stats64, rx_bytes)},
    {"LanBytesTxCount", object_put_uint64, offsetof(struct rtnl_link_stats64, tx_bytes)},
    {"LanMulticastPktRxCount", object_put_uint32, offsetof(struct rtnl_link_stats64, multicast)},
};

/* The adapters count data in words of four bytes. */
static void put_words(struct object* object, const char* member, uint64_t words)
{
    object_put_uint64(object, member, words * 4);
}

static const struct attribute rdma_counters[] = {
    {"RDMARxTotalPackets", "port_rcv_packets", object_put_uint64, 10},
    {"RDMATxTotalPackets", "port_xmit_packets", object_put_uint64, 10},
    {"RDMARxTotalBytes", "port_rcv_data", put_words, 10},
    {"RDMATxTotalBytes", "port_xmit_data", put_words, 10},
};

/* The device of a virtual machine's adapter is one level below its PCI device. */
static const struct attribute placement[] = {
    {"CPUAffinity", "device/../numa_node", object_put_uint16, 10},
    {"CPUAffinity", "device/numa_node", object_put_uint16, 10},
};

struct rdma
{
    struct object* object;
    uint64_t port;
};

static void read_adapter(void* data, const char* adapter, const char* name)
{
    const struct rdma* rdma = data;
    char counters_of_port[sizeof "ports/18446744073709551615/counters"];
    char directory[sysfs_path_size];
    (void)name;
    snprintf(counters_of_port, sizeof counters_of_port, "ports/%" PRIu64 "/counters", rdma->port);
    if (sysfs_join(directory, adapter, counters_of_port))
    {
        attributes_read(rdma->object, directory, rdma_counters,
                        sizeof rdma_counters / sizeof *rdma_counters);
    }
}

/* Two digits a byte, with colons between. */
static void put_address(struct object* object, const char* member, struct rtnetlink_address address)
{
    static const char digits[] = "0123456789abcdef";
    char text[3 * MAX_ADDR_LEN + 1] = "";
    const size_t size = address.size < MAX_ADDR_LEN ? address.size : MAX_ADDR_LEN;
    for (size_t i = 0; i < size; ++i)
    {
        text[3 * i] = digits[address.bytes[i] >> 4];
        text[3 * i + 1] = digits[address.bytes[i] & 0xF];
        text[3 * i + 2] = i + 1 < size ? ':' : '\0';
    }
    object_put_string(object, member, text);
}

void nic_partition_read(struct object* object, const char* device,
                        const struct rtnetlink_link* link)
{
    static const struct rtnetlink_address none;
    struct rdma rdma = {object, 0};
    char adapters[sysfs_path_size];
    const struct rtnetlink_address* permanent = &link->permanent_address;
    const bool is_permanent = link->address.size == permanent->size &&
                              (permanent->size == 0 ||
                               memcmp(link->address.bytes, permanent->bytes, permanent->size) == 0);
    nic_put_link_status(object, "PartitionLinkStatus", link);
    put_address(object, "PermanentMACAddress", *permanent);
    put_address(object, "VirtualMACAddress", is_permanent ? none : link->address);
    nic_put_counters(object, link, counters, sizeof counters / sizeof *counters);
    if (sysfs_join(adapters, device, "device/infiniband"))
    {
        /* dev_port counts the adapter's ports from 0, the adapter's directories from 1. */
        rdma.port = sysfs_number(device, "dev_port", 10, &rdma.port) ? rdma.port + 1 : 1;
        sysfs_each(adapters, read_adapter, &rdma);
    }
    nic_put_statistics_time(object);
}

static void put_driver(struct object* object, const char* device, const struct rtnetlink_link* link)
{
    const struct ethtool_drvinfo info = ethtool_ask_driver(device);
    struct pci_location location;
    char driver[sysfs_path_size];
    char adapters[sysfs_path_size];
    nic_put_driver_state(object, "PartitionOSDriverState", device);
    if (pci_location_parse(info.bus_info, &location))
    {
        object_put_uint32(object, "PCIBus", location.bus);
        object_put_uint32(object, "PCIDevice", location.device);
        object_put_uint32(object, "PCIFunction", location.function);
    }
    if (!sysfs_link_name(device, "device/driver", driver))
    {
        return;
    }
    if (link->type == ARPHRD_INFINIBAND)
    {
        object_put_string(object, "InfiniBandOSDriver", driver);
    }
    if (sysfs_join(adapters, device, "device/infiniband") && sysfs_is_directory(adapters))
    {
        object_put_string(object, "RDMAOSDriver", driver);
    }
}

bool nic_partition_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                           const struct rtnetlink_link* link)
{
    if (!object_publish(object, context, GANTRY_instantiate__com_orvane_velmar_system_NicPartition,
                        "com.orvane.velmar.system.NicPartition", link->name))
    {
        return false;
    }
    object_put_format(object, "FQDD", "NIC.%s-1", link->name);
    object_put_format(object, "FriendlyFQDD", "Partition 1 of network port %s", link->name);
    attributes_read(object, device, placement, sizeof placement / sizeof *placement);
    put_driver(object, device, link);
    nic_partition_read(object, device, link);
    return true;
}
