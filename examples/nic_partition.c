#define _XOPEN_SOURCE 700 /* realpath */

#include "attribute.h"
#include "nic.h"
#include "pci_location.h"
#include "sysfs.h"

#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    driver_bound = 1 /* this host's code */
};

static const struct attribute counters[] = {
    {"LanBytesRxCount", "statistics/rx_bytes", object_put_uint64, 10},
    {"LanBytesTxCount", "statistics/tx_bytes", object_put_uint64, 10},
    {"LanUnicastPktTXCount", "statistics/tx_packets", object_put_uint64, 10},
};

static const struct attribute rdma_counters[] = {
    {"RDMARxTotalPackets", "port_rcv_packets", object_put_uint64, 10},
    {"RDMATxTotalPackets", "port_xmit_packets", object_put_uint64, 10},
};

/* The adapters count data in words of four bytes. */
static const struct attribute rdma_words[] = {
    {"RDMARxTotalBytes", "port_rcv_data", object_put_uint64, 10},
    {"RDMATxTotalBytes", "port_xmit_data", object_put_uint64, 10},
};

static const struct attribute placement[] = {
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
    char ports[32];
    char directory[sysfs_path_size];
    (void)name;
    snprintf(ports, sizeof ports, "ports/%" PRIu64 "/counters", rdma->port);
    if (!sysfs_join(directory, adapter, ports))
    {
        return;
    }
    attributes_read(rdma->object, directory, rdma_counters,
                    sizeof rdma_counters / sizeof *rdma_counters);
    for (size_t i = 0; i < sizeof rdma_words / sizeof *rdma_words; ++i)
    {
        uint64_t words = 0;
        if (sysfs_number(directory, rdma_words[i].file, 10, &words))
        {
            object_put_uint64(rdma->object, rdma_words[i].member, words * 4);
        }
    }
}

void nic_partition_read(struct object* object, const char* device)
{
    struct rdma rdma = {object, 0};
    char adapters[sysfs_path_size];
    uint64_t unicast = 0;
    uint64_t multicast = 0;
    nic_put_link_status(object, "PartitionLinkStatus", device);
    attributes_read(object, device, counters, sizeof counters / sizeof *counters);
    if (nic_received_packets(device, &unicast, &multicast))
    {
        object_put_uint64(object, "LanUnicastPktRXCount", unicast);
        object_put_uint32(object, "LanMulticastPktRxCount", multicast);
    }
    if (sysfs_join(adapters, device, "device/infiniband"))
    {
        /* dev_port counts the adapter's ports from 0, the adapter's directories from 1. */
        rdma.port = sysfs_number(device, "dev_port", 10, &rdma.port) ? rdma.port + 1 : 1;
        sysfs_each(adapters, read_adapter, &rdma);
    }
    object_put_uint32(object, "StatisticsTime", nic_now());
}

/* The location of the network interface's PCI device. */
static bool find_location(const char* device, struct pci_location* location)
{
    char link[sysfs_path_size];
    char path[PATH_MAX];
    if (!sysfs_join(link, device, "device") || realpath(link, path) == NULL)
    {
        return false;
    }
    /* The device of a virtual machine's adapter is one level below its PCI device. */
    for (int steps = 0; steps < 2; ++steps)
    {
        char* slash = strrchr(path, '/');
        if (pci_location_parse(slash + 1, location))
        {
            return true;
        }
        *(slash == path ? slash + 1 : slash) = '\0';
    }
    return false;
}

static void put_address(struct object* object, const char* device)
{
    enum
    {
        permanent = 0
    };
    char address[sysfs_text_size];
    uint64_t origin = 0;
    /* The address's origin decides which of the two properties it belongs to. */
    if (sysfs_text(device, "address", address) &&
        sysfs_number(device, "addr_assign_type", 10, &origin))
    {
        object_put_string(object, origin == permanent ? "PermanentMACAddress" : "VirtualMACAddress",
                          address);
    }
}

static void put_driver(struct object* object, const char* device)
{
    enum
    {
        infiniband = 32
    };
    char driver[sysfs_path_size];
    char adapters[sysfs_path_size];
    uint64_t type = 0;
    if (!sysfs_link_name(device, "device/driver", driver))
    {
        return;
    }
    object_put_byte(object, "PartitionOSDriverState", driver_bound);
    if (sysfs_number(device, "type", 10, &type) && type == infiniband)
    {
        object_put_string(object, "InfiniBandOSDriver", driver);
    }
    if (sysfs_join(adapters, device, "device/infiniband") && sysfs_is_directory(adapters))
    {
        object_put_string(object, "RDMAOSDriver", driver);
    }
}

bool nic_partition_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                           const char* name)
{
    struct pci_location location;
    if (!object_publish(object, context, GANTRY_instantiate__com_orvane_velmar_system_NicPartition,
                        "com.orvane.velmar.system.NicPartition", name))
    {
        return false;
    }
    object_put_format(object, "FQDD", "NIC.%s-1", name);
    object_put_format(object, "FriendlyFQDD", "Partition 1 of network port %s", name);
    object_put_uint32(object, "StatisticsStartTime", nic_now());
    if (find_location(device, &location))
    {
        object_put_uint32(object, "PCIBus", location.bus);
        object_put_uint32(object, "PCIDevice", location.device);
        object_put_uint32(object, "PCIFunction", location.function);
    }
    attributes_read(object, device, placement, sizeof placement / sizeof *placement);
    put_address(object, device);
    put_driver(object, device);
    nic_partition_read(object, device);
    return true;
}
