/*
 * InfiniBand: a port is one of an RDMA device whose links are InfiniBand's, and its partition has
 * the addresses of the network interface for IP over it.
 */
#include "adapter.h"
#include "attribute.h"
#include "inventory.h"
#include "nic.h"
#include "slots.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void find_port(void* data, const char* path, const char* name)
{
    char text[sysfs_text_size];
    if (sysfs_text(path, "link_layer", text) && strcmp(text, "InfiniBand") == 0)
    {
        adapter_found(data, path, (unsigned int)strtoul(name, NULL, 10));
    }
}

static void find_device(void* data, const char* path, const char* name)
{
    char ports[sysfs_path_size];
    (void)name;
    if (sysfs_join(ports, path, "ports"))
    {
        sysfs_each(ports, find_port, data);
    }
}

static void find_ports(struct adapter_scan* scan, const char* function)
{
    char devices[sysfs_path_size];
    if (sysfs_join(devices, function, "infiniband"))
    {
        sysfs_each(devices, find_device, scan);
    }
}

static void put_slot(struct object* object, const struct card* card, const char* port,
                     unsigned int ports)
{
    static const struct attribute of_device[] = {
        {"NodeGUID", "../../node_guid", NULL, 0},
        {"FamilyVersion", "../../fw_ver", NULL, 0},
    };
    enum
    {
        protocol_infiniband = 2 /* beside Ethernet's code on NicSlot */
    };
    object_put_byte(object, "Protocol", protocol_infiniband);
    object_put_string(object, "SupportedProtocols", ports > 0 ? "InfiniBand" : NULL);
    slots_put_pci(object, card, "SlotLength");
    if (ports > 0)
    {
        attributes_read(object, port, of_device, sizeof of_device / sizeof *of_device);
    }
}

static unsigned int read_link(const char* port)
{
    enum
    {
        active = 4
    };
    char text[sysfs_text_size];
    return !sysfs_text(port, "state", text)    ? 0
           : strtoul(text, NULL, 10) == active ? adapter_link_up
                                               : adapter_link_down;
}

/* The rate is such as "100 Gb/sec (4X EDR)". The speed's code is its place among these. */
static void put_rate(struct object* object)
{
    static const char* const speeds[] = {"",    "SDR", "DDR", "QDR", "FDR10",
                                         "FDR", "EDR", "HDR", "NDR", "XDR"};
    enum
    {
        unknown_speed = 255
    };
    char text[sysfs_text_size];
    char name[8] = "";
    unsigned int width = 0;
    size_t code = sizeof speeds / sizeof *speeds - 1;
    if (sysfs_text(object->device, "rate", text))
    {
        (void)sscanf(text, "%*s Gb/sec (%2uX %7[A-Z0-9]", &width, name);
    }
    while (code > 0 && strcmp(name, speeds[code]) != 0)
    {
        --code;
    }
    object_put_byte(object, "LinkWidth", width);
    object_put_byte(object, "LinkSpeed", code > 0 ? code : unknown_speed);
}

static void put_port_counters(struct object* object)
{
    static const struct attribute counters[] = {
        {"PortXmitData", "counters/port_xmit_data", adapter_put_counter, 10},
        {"PortRcvData", "counters/port_rcv_data", adapter_put_counter, 10},
        {"PortXmitPkts", "counters/port_xmit_packets", adapter_put_counter, 10},
        {"PortRcvPkts", "counters/port_rcv_packets", adapter_put_counter, 10},
        {"PortXmitWait", "counters/port_xmit_wait", adapter_put_counter, 10},
        {"PortXmitDiscard", "counters/port_xmit_discards", adapter_put_counter, 10},
        {"DiscardedPkts", "counters/port_xmit_discards", adapter_put_counter, 10},
        {"SmbolErrorCounter", "counters/symbol_error", adapter_put_counter, 10},
        {"SymbolErrorCounter", "counters/symbol_error", adapter_put_counter, 10},
        {"LinkErrorRecoveryCounter", "counters/link_error_recovery", adapter_put_counter, 10},
        {"LinkDownedCounter", "counters/link_downed", adapter_put_counter, 10},
        {"PortRcvErrors", "counters/port_rcv_errors", adapter_put_counter, 10},
        {"PortRcvRemotePhysicalErrors", "counters/port_rcv_remote_physical_errors",
         adapter_put_counter, 10},
        {"PortRcvSwitchRelayErrors", "counters/port_rcv_switch_relay_errors", adapter_put_counter,
         10},
        {"LocalLinkIntegrityErrors", "counters/local_link_integrity_errors", adapter_put_counter,
         10},
        {"ExcessiveBufferOverrun", "counters/excessive_buffer_overrun_errors", adapter_put_counter,
         10},
        {"VL15Dropped", "counters/VL15_dropped", adapter_put_counter, 10},
        {"ReceiveTotalBytes", "counters/port_rcv_data", nic_put_words, 10},
        {"TransmitTotalBytes", "counters/port_xmit_data", nic_put_words, 10},
        {"ReceiveTotalUnicast", "counters/unicast_rcv_packets", object_put_uint64, 10},
        {"ReceiveTotalMulticast", "counters/multicast_rcv_packets", object_put_uint64, 10},
        {"TransmitTotalUnicast", "counters/unicast_xmit_packets", object_put_uint64, 10},
        {"TransmitTotalMulticast", "counters/multicast_xmit_packets", object_put_uint64, 10},
    };
    object_put_byte(object, "LinkStatus", read_link(object->device));
    put_rate(object);
    attributes_read(object, object->device, counters, sizeof counters / sizeof *counters);
    nic_put_statistics_times(object);
}

/* The lower half of a GID is a GUID. Of the port's table, the first one is its maker's, and one
 * that follows is what the subnet manager has given it. */
static void put_guid(struct object* object, const char* member, const char* gid)
{
    static const char none[] = "0000:0000:0000:0000";
    char text[sysfs_text_size];
    if (sysfs_text(object->device, gid, text) && strlen(text) == 2 * sizeof none - 1)
    {
        const char* guid = text + sizeof none;
        object_put_string(object, member, strcmp(guid, none) != 0 ? guid : "");
    }
}

static void put_port(struct object* object, const struct card* card)
{
    enum
    {
        media_infiniband = 256 /* beside ethtool's codes on NicPort */
    };
    uint64_t functions = 0;
    put_guid(object, "PermanentPortGUID", "gids/0");
    put_guid(object, "VirtualPortGUID", "gids/1");
    object_put_uint16(object, "MediaType", media_infiniband);
    object_put_byte(object, "RDMASupport", switch_on);
    /* A link grants credits for what may be sent, always and in both directions. */
    object_put_byte(object, "RXFlowControl", switch_on);
    object_put_byte(object, "TXFlowControl", switch_on);
    object_put_byte(object, "OnChipThermalSensor",
                    object_switch(true, sysfs_has_directory(card->function, "hwmon")));
    (void)sysfs_number(card->function, "sriov_totalvfs", 10, &functions);
    object_put_byte(object, "VFSRIOVSupport", object_switch(true, functions > 0));
    put_port_counters(object);
}

static void put_partition_counters(struct object* object)
{
    static const struct attribute counters[] = {
        {"IBunicastPacketsRxCount", "counters/unicast_rcv_packets", object_put_uint64, 10},
        {"IBMulticastPacketsRxCount", "counters/multicast_rcv_packets", object_put_uint64, 10},
        {"IBUnicastPacketsTxCount", "counters/unicast_xmit_packets", object_put_uint64, 10},
        {"IBMulticastPacketsTxCount", "counters/multicast_xmit_packets", object_put_uint64, 10},
    };
    object_put_byte(object, "PartitionLinkStatus", read_link(object->device));
    attributes_read(object, object->device, counters, sizeof counters / sizeof *counters);
    nic_put_rdma(object, object->device);
    nic_put_statistics_times(object);
}

/* The partition's interface is that of the same number, which interfaces count from 0; those of
 * further partition keys are on top of it. */
static void put_interface(void* data, const char* path, const char* name)
{
    struct object* object = data;
    struct rtnetlink_link link;
    char parent[sysfs_text_size];
    uint64_t number = 0;
    const char* port = strrchr(object->device, '/') + 1;
    (void)name;
    if (sysfs_number(path, "dev_port", 10, &number) && number + 1 == strtoul(port, NULL, 10) &&
        !sysfs_text(path, "parent", parent) && rtnetlink_ask(&link, path))
    {
        nic_put_addresses(object, &link);
    }
}

static void put_partition(struct object* object, const struct card* card)
{
    char text[sysfs_path_size];
    card_put_functions(object, card);
    if (sysfs_link_name(card->function, "driver", text))
    {
        object_put_byte(object, "PartitionOSDriverState", adapter_driver_bound);
        object_put_string(object, "OSDriver", text);
        object_put_string(object, "RDMAOSDriver", text);
        object_put_string(object, "InfiniBandOSDriver", text);
    }
    if (sysfs_join(text, card->function, "net"))
    {
        sysfs_each(text, put_interface, object);
    }
    put_partition_counters(object);
}

static void create_slot(GANTRY_cpp_context* context, const void* table, const char* path,
                        void* data)
{
    (void)table; /* no dump is made, so its method has no handler */
    GANTRY_instantiate__com_orvane_velmar_system_IBSlot(context, NULL, path, data);
}

void scan_ib(void)
{
    static const char turns[] = "InfiniBand ports and their partitions";
    static struct adapter_family family = {
        "IB",
        "InfiniBand",
        0x0207,
        "PartitionCount",
        find_ports,
        put_slot,
        put_port,
        put_partition,
        {.interface = "com.orvane.velmar.system.IBSlot", .create = create_slot},
        {OBJECT_KIND(system, IBController)},
        {OBJECT_KIND(system, IBPort), .put_counters = put_port_counters, .turns = turns},
        {OBJECT_KIND(system, IBPartition), .put_counters = put_partition_counters, .turns = turns},
    };
    adapter_scan(&family);
}
