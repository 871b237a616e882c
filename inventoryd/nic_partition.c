#include "attribute.h"
#include "nic.h"
#include "sysfs.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

static const struct nic_counter counters[] = {
    {"LanBytesRxCount", object_put_uint64, offsetof(struct rtnl_link_stats64, rx_bytes)},
    {"LanBytesTxCount", object_put_uint64, offsetof(struct rtnl_link_stats64, tx_bytes)},
    {"LanMulticastPktRxCount", object_put_uint32, offsetof(struct rtnl_link_stats64, multicast)},
};

void nic_put_words(struct object* object, const char* member, uint64_t words)
{
    object_put_uint64(object, member, words * 4);
}

void nic_put_rdma(struct object* object, const char* port)
{
    static const struct attribute counters_of_port[] = {
        {"RDMARxTotalPackets", "counters/port_rcv_packets", object_put_uint64, 10},
        {"RDMATxTotalPackets", "counters/port_xmit_packets", object_put_uint64, 10},
        {"RDMARxTotalBytes", "counters/port_rcv_data", nic_put_words, 10},
        {"RDMATxTotalBytes", "counters/port_xmit_data", nic_put_words, 10},
        /* As drivers of iWARP adapters call them. */
        {"RDMATxTotalReadReqPkts", "hw_counters/iwOutRdmaReads", object_put_uint64, 10},
        {"RDMATxTotalSendPkts", "hw_counters/iwOutRdmaSends", object_put_uint64, 10},
        {"RDMATxTotalWritePkts", "hw_counters/iwOutRdmaWrites", object_put_uint64, 10},
    };
    attributes_read(object, port, counters_of_port,
                    sizeof counters_of_port / sizeof *counters_of_port);
}

struct rdma
{
    struct object* object;
    uint64_t port;
};

static void read_adapter(void* data, const char* adapter, const char* name)
{
    const struct rdma* rdma = data;
    char port[sysfs_path_size];
    char place[sizeof "ports/18446744073709551615"];
    (void)name;
    snprintf(place, sizeof place, "ports/%" PRIu64, rdma->port);
    if (sysfs_join(port, adapter, place))
    {
        nic_put_rdma(rdma->object, port);
    }
}

/* The RDMA adapters of the interface's device. */
static void read_rdma(struct object* object, const char* device)
{
    struct rdma rdma = {object, 0};
    char adapters[sysfs_path_size];
    if (sysfs_join(adapters, device, "device/infiniband"))
    {
        /* dev_port counts the adapter's ports from 0, the adapter's directories from 1. */
        rdma.port = sysfs_number(device, "dev_port", 10, &rdma.port) ? rdma.port + 1 : 1;
        sysfs_each(adapters, read_adapter, &rdma);
    }
}

/* Two digits a byte, with colons between. */
static void put_address(struct object* object, const char* member,
                        const struct rtnetlink_address* address)
{
    static const char digits[] = "0123456789abcdef";
    char text[3 * rtnetlink_most_address + 1] = "";
    for (size_t i = 0; i < address->size; ++i)
    {
        text[3 * i] = digits[address->bytes[i] >> 4];
        text[3 * i + 1] = digits[address->bytes[i] & 0xF];
        text[3 * i + 2] = i + 1 < address->size ? ':' : '\0';
    }
    object_put_string(object, member, text);
}

void nic_put_addresses(struct object* object, const struct rtnetlink_link* link)
{
    static const struct rtnetlink_address none;
    const struct rtnetlink_address* permanent = &link->permanent_address;
    const bool is_permanent = link->address.size == permanent->size &&
                              memcmp(link->address.bytes, permanent->bytes, permanent->size) == 0;
    put_address(object, "PermanentMACAddress", permanent);
    put_address(object, "VirtualMACAddress", is_permanent ? &none : &link->address);
}

static void put_driver(struct object* object, const char* device)
{
    char driver[sysfs_path_size];
    nic_put_driver_state(object, "PartitionOSDriverState", device);
    if (sysfs_link_name(device, "device/driver", driver) &&
        sysfs_has_directory(device, "device/infiniband"))
    {
        object_put_string(object, "RDMAOSDriver", driver);
    }
}

void nic_put_partition_link(struct object* object, const struct rtnetlink_link* link)
{
    nic_put_link_status(object, "PartitionLinkStatus", link);
    nic_put_addresses(object, link);
}

/* The standard statistics tell unicast, multicast and broadcast apart, if the driver has them. */
void nic_put_partition_counters(struct object* object)
{
    struct nic_packets packets;
    union netlink_message message;
    struct rtnetlink_link link;
    if (!rtnetlink_ask(&link, object->device))
    {
        return;
    }
    nic_put_link_status(object, "PartitionLinkStatus", &link);
    nic_put_counters(object, &link, counters, sizeof counters / sizeof *counters);
    if (nic_ask_packets(&packets, object->device, &message))
    {
        object_put_uint64(object, "LanUnicastPktRXCount", packets.received_unicast);
        object_put_uint64(object, "LanUnicastPktTXCount", packets.sent_unicast);
        object_put_uint32(object, "LanMulticastPktTxCount", packets.sent_multicast);
        object_put_uint32(object, "LanBroadcastPktRxCount", packets.received_broadcast);
        object_put_uint32(object, "LanBoradcastPktTxCount", packets.sent_broadcast);
    }
    read_rdma(object, object->device);
    nic_put_statistics_times(object);
}

void nic_put_partition(struct object* object, const struct nic_interface* interface)
{
    card_put_location(object, &interface->card);
    card_put_functions(object, &interface->card);
    put_driver(object, interface->device);
    nic_put_addresses(object, &interface->link);
}
