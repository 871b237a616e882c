/*
 * InfiniBand: a port is one of an RDMA device whose links are InfiniBand's, and its partition has
 * the addresses of the network interface for IP over it.
 */
#include "adapter.h"
#include "inventory.h"
#include "nic.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void find_port(void* data, const char* path)
{
    struct adapter_port port = {.card = *(const struct card*)data, .device = (char*)path};
    char text[sysfs_text_size];
    if (sysfs_text(path, "link_layer", text) && strcmp(text, "InfiniBand") == 0)
    {
        port.number = (unsigned int)strtoul(sysfs_name(path), NULL, 10) - 1;
        adapter_add(&port);
    }
}

static void find_ports(void* data, const char* path)
{
    sysfs_each(path, "ports", find_port, data);
}

static void put_slot(struct object* object, const struct adapter_port* first)
{
    static const struct row of_port[] = {
        {"NodeGUID", "../../node_guid", row_plain},
        {"FamilyVersion", "../../fw_ver", row_plain},
        {0},
    };
    const unsigned int infiniband = 2; /* beside Ethernet's code on NicSlot */
    object_put_number(object, "Protocol", infiniband);
    if (first->device[0] != '\0')
    {
        object_put_string(object, "SupportedProtocols", "InfiniBand");
        sysfs_put(object, first->device, of_port);
    }
}

/* The rate is such as "100 Gb/sec (4X EDR)". The speed's code is its place among these. */
static void put_rate(struct object* object)
{
    static const char* const speeds[] = {"",    "SDR", "DDR", "QDR", "FDR10",
                                         "FDR", "EDR", "HDR", "NDR", "XDR"};
    const size_t unknown = 255;
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
    object_put_number(object, "LinkWidth", width);
    object_put_number(object, "LinkSpeed", code > 0 ? code : unknown);
}

/* Of a port and of its partition. */
static void put_counters(struct object* object)
{
    static const struct row rows[] = {
        {"PortXmitData", "counters/port_xmit_data", row_counter},
        {"PortRcvData", "counters/port_rcv_data", row_counter},
        {"PortXmitPkts", "counters/port_xmit_packets", row_counter},
        {"PortRcvPkts", "counters/port_rcv_packets", row_counter},
        {"PortXmitWait", "counters/port_xmit_wait", row_counter},
        {"PortXmitDiscard", "counters/port_xmit_discards", row_counter},
        {"DiscardedPkts", "counters/port_xmit_discards", row_counter},
        {"SmbolErrorCounter", "counters/symbol_error", row_counter},
        {"SymbolErrorCounter", "counters/symbol_error", row_counter},
        {"LinkErrorRecoveryCounter", "counters/link_error_recovery", row_counter},
        {"LinkDownedCounter", "counters/link_downed", row_counter},
        {"PortRcvErrors", "counters/port_rcv_errors", row_counter},
        {"PortRcvRemotePhysicalErrors", "counters/port_rcv_remote_physical_errors", row_counter},
        {"PortRcvSwitchRelayErrors", "counters/port_rcv_switch_relay_errors", row_counter},
        {"LocalLinkIntegrityErrors", "counters/local_link_integrity_errors", row_counter},
        {"ExcessiveBufferOverrun", "counters/excessive_buffer_overrun_errors", row_counter},
        {"VL15Dropped", "counters/VL15_dropped", row_counter},
        {"ReceiveTotalBytes", "counters/port_rcv_data", row_words},
        {"TransmitTotalBytes", "counters/port_xmit_data", row_words},
        {"ReceiveTotalUnicast", "counters/unicast_rcv_packets", row_counter},
        {"ReceiveTotalMulticast", "counters/multicast_rcv_packets", row_counter},
        {"TransmitTotalUnicast", "counters/unicast_xmit_packets", row_counter},
        {"TransmitTotalMulticast", "counters/multicast_xmit_packets", row_counter},
        {"IBunicastPacketsRxCount", "counters/unicast_rcv_packets", row_counter},
        {"IBMulticastPacketsRxCount", "counters/multicast_rcv_packets", row_counter},
        {"IBUnicastPacketsTxCount", "counters/unicast_xmit_packets", row_counter},
        {"IBMulticastPacketsTxCount", "counters/multicast_xmit_packets", row_counter},
        {0},
    };
    const unsigned long active = 4;
    char text[sysfs_text_size];
    const bool is_known = sysfs_text(object->device, "state", text);
    adapter_put_link(object, is_known, strtoul(text, NULL, 10) == active);
    put_rate(object);
    sysfs_put(object, object->device, rows);
    adapter_put_rdma(object, object->device);
    object_put_statistics_times(object);
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

static void put_port(struct object* object, const struct adapter_port* port)
{
    const unsigned int infiniband = 256; /* beside ethtool's codes on NicPort */
    put_guid(object, "PermanentPortGUID", "gids/0");
    put_guid(object, "VirtualPortGUID", "gids/1");
    object_put_number(object, "MediaType", infiniband);
    /* A link grants credits for what may be sent, always and in both directions. */
    object_put_switch(object, "RXFlowControl", true, true);
    object_put_switch(object, "TXFlowControl", true, true);
    adapter_put_capabilities(object, port);
}

/* The partition's interface is that of the same number, which interfaces count from 0; those of
 * further partition keys are on top of it. */
static void put_interface(void* data, const char* path)
{
    struct object* object = data;
    struct rtnetlink_link link;
    char parent[sysfs_text_size];
    uint64_t number = 0;
    if (sysfs_number(path, "dev_port", 10, &number) &&
        number + 1 == strtoul(sysfs_name(object->device), NULL, 10) &&
        !sysfs_text(path, "parent", parent) && rtnetlink_ask(&link, path))
    {
        nic_put_addresses(object, &link);
    }
}

static void put_partition(struct object* object, const struct adapter_port* partition)
{
    char driver[sysfs_path_size];
    if (adapter_find_driver(partition, driver))
    {
        object_put_string(object, "InfiniBandOSDriver", driver);
    }
    sysfs_each(partition->card.function, "net", put_interface, object);
}

void scan_ib(void)
{
    static struct adapter_family family = {
        .prefix = "IB",
        .title = "InfiniBand",
        .code = 0x0207,
        .find_ports = find_ports,
        .directory = "infiniband",
        .put_slot = put_slot,
        .put_port = put_port,
        .put_partition = put_partition,
        .slot = {DUMP_KIND(IBSlot)},
        .controller = {OBJECT_KIND(system, IBController)},
        .port = {OBJECT_KIND(system, IBPort), .put_counters = put_counters, .turn = 1},
        .partition = {OBJECT_KIND(system, IBPartition), .put_counters = put_counters, .turn = 2},
    };
    adapter_scan(&family);
}
