#include "attribute.h"
#include "ethtool.h"
#include "firmware_versions.h"
#include "nic.h"

#include <string.h>

/* This host's codes. The speed's property is a byte, so it holds a code instead of a rate. */
enum
{
    duplex_unknown = 0,
    duplex_full = 1,
    duplex_half = 2,
    speed_unknown = 255,
    no_counter = -1
};

static const unsigned int megabits[] = {10,    100,   1000,   2500,   5000,   10000, 25000,
                                        40000, 50000, 100000, 200000, 400000, 800000};

#define COUNTER(name) offsetof(struct rtnl_link_stats64, name)
#define MAC(name) ETHTOOL_STATS_ETH_MAC, ETHTOOL_A_STATS_ETH_MAC_##name
#define RMON(name) ETHTOOL_STATS_RMON, ETHTOOL_A_STATS_RMON_##name

static const struct nic_counter counters[] = {
    {"ReceiveTotalBytes", object_put_uint64, COUNTER(rx_bytes)},
    {"TransmitTotalBytes", object_put_uint64, COUNTER(tx_bytes)},
};

/* Standard statistics, of drivers that have them, and the link's counter that stands for one where
 * a driver has not. */
static const struct statistic
{
    const char* member;
    unsigned int group;
    unsigned int id;
    ptrdiff_t offset; /* in struct rtnl_link_stats64, or no_counter */
} statistics[] = {
    {"ReceiveErrorPktFCSErrors", MAC(6_FCS_ERR), COUNTER(rx_crc_errors)},
    {"ReceiveErrorPktAlignmentErrors", MAC(7_ALIGN_ERR), COUNTER(rx_frame_errors)},
    {"TransmitErrorPktSingleCollision", MAC(3_SINGLE_COL), no_counter},
    {"TransmitErrorPktMultipleCollision", MAC(4_MULTI_COL), no_counter},
    {"TransmitErrorPktLateCollision", MAC(10_LATE_COL), COUNTER(tx_window_errors)},
    {"TransmitErrorPktExcessiveCollision", MAC(11_XS_COL), COUNTER(tx_aborted_errors)},
    {"ReceiveRuntPkt", RMON(UNDERSIZE), no_counter},
    {"ReceiveJabberPkt", RMON(JABBER), no_counter},
};

bool nic_ask_packets(struct nic_packets* packets, const char* device,
                     union netlink_message* message)
{
    uint64_t* const received = &packets->received_unicast;
    uint64_t* const sent = &packets->sent_unicast;
    const struct
    {
        unsigned int id;
        uint64_t* count;
        uint64_t* total; /* of which it is a part, or null */
    } parts[] = {
        {ETHTOOL_A_STATS_ETH_MAC_5_RX_PKT, received, NULL},
        {ETHTOOL_A_STATS_ETH_MAC_21_RX_MCAST, &packets->received_multicast, received},
        {ETHTOOL_A_STATS_ETH_MAC_22_RX_BCAST, &packets->received_broadcast, received},
        {ETHTOOL_A_STATS_ETH_MAC_2_TX_PKT, sent, NULL},
        {ETHTOOL_A_STATS_ETH_MAC_18_TX_MCAST, &packets->sent_multicast, sent},
        {ETHTOOL_A_STATS_ETH_MAC_19_TX_BCAST, &packets->sent_broadcast, sent},
    };
    bool is_known = ethtool_ask(message, device, ETHTOOL_MSG_STATS_GET);
    for (size_t i = 0; is_known && i < sizeof parts / sizeof *parts; ++i)
    {
        is_known = ethtool_statistic(message, ETHTOOL_STATS_ETH_MAC, parts[i].id, parts[i].count);
        if (is_known && parts[i].total != NULL)
        {
            is_known = *parts[i].count <= *parts[i].total;
            *parts[i].total -= *parts[i].count;
        }
    }
    return is_known;
}

static unsigned int speed_code(uint64_t speed)
{
    for (unsigned int i = 0; i < sizeof megabits / sizeof *megabits; ++i)
    {
        if (megabits[i] == speed)
        {
            return i + 1;
        }
    }
    return speed_unknown;
}

/* What the settings of the link tell. The answer to ETHTOOL_MSG_LINKMODES_GET has a bit set of the
 * modes that the port advertises, as its mask those that it supports, and one of its partner's. */
static void put_settings(struct object* object, const union netlink_message* modes)
{
    uint64_t speed = 0;
    uint64_t duplex = DUPLEX_UNKNOWN;
    uint64_t negotiates = AUTONEG_DISABLE;
    (void)ethtool_number(modes, ETHTOOL_A_LINKMODES_SPEED, &speed);
    (void)ethtool_number(modes, ETHTOOL_A_LINKMODES_DUPLEX, &duplex);
    const bool is_known = ethtool_number(modes, ETHTOOL_A_LINKMODES_AUTONEG, &negotiates);
    object_put_byte(object, "LinkSpeed", speed_code(speed));
    object_put_byte(object, "LinkDuplex",
                    duplex == DUPLEX_FULL   ? duplex_full
                    : duplex == DUPLEX_HALF ? duplex_half
                                            : duplex_unknown);
    object_put_byte(object, "AutoNegotiation",
                    object_switch(is_known, negotiates == AUTONEG_ENABLE));
}

/* ReceiveFlowControl and TransmitFlowControl are what the port is set to, RXFlowControl and
 * TXFlowControl what is in effect: the same if pause frames aren't negotiated, and otherwise what
 * follows from the pause modes that the port and its partner advertise. By asymmetric pause modes
 * they can agree on one direction alone: from the side without symmetric pause to the other. */
static void put_flow_control(struct object* object, const union netlink_message* modes,
                             const char* device)
{
    enum
    {
        pause_bit = ETHTOOL_LINK_MODE_Pause_BIT,
        asymmetric_bit = ETHTOOL_LINK_MODE_Asym_Pause_BIT
    };
    union netlink_message pause;
    uint64_t negotiates = 0;
    uint64_t receives = 0;
    uint64_t sends = 0;
    const struct nlattr* own = netlink_find(modes, ETHTOOL_A_LINKMODES_OURS);
    const struct nlattr* partner = netlink_find(modes, ETHTOOL_A_LINKMODES_PEER);
    const bool is_known = ethtool_ask(&pause, device, ETHTOOL_MSG_PAUSE_GET) &&
                          ethtool_number(&pause, ETHTOOL_A_PAUSE_AUTONEG, &negotiates) &&
                          ethtool_number(&pause, ETHTOOL_A_PAUSE_RX, &receives) &&
                          ethtool_number(&pause, ETHTOOL_A_PAUSE_TX, &sends);
    const bool is_fixed = is_known && negotiates == 0;
    const bool is_negotiated = ethtool_has_bit(partner, ETHTOOL_LINK_MODE_Autoneg_BIT);
    const bool port_pauses = ethtool_has_bit(own, pause_bit);
    const bool partner_pauses = ethtool_has_bit(partner, pause_bit);
    const bool asymmetric =
        ethtool_has_bit(own, asymmetric_bit) && ethtool_has_bit(partner, asymmetric_bit);
    object_put_byte(object, "ReceiveFlowControl", object_switch(is_known, receives != 0));
    object_put_byte(object, "TransmitFlowControl", object_switch(is_known, sends != 0));
    object_put_byte(
        object, "RXFlowControl",
        object_switch(is_fixed || is_negotiated,
                      is_fixed ? receives != 0 : port_pauses && (partner_pauses || asymmetric)));
    object_put_byte(
        object, "TXFlowControl",
        object_switch(is_fixed || is_negotiated,
                      is_fixed ? sends != 0 : partner_pauses && (port_pauses || asymmetric)));
}

/* This host's code is the port's kind of linux/ethtool.h and 1, so that 0 is unknown. */
static void put_medium(struct object* object, const char* device)
{
    union netlink_message info;
    uint64_t port = PORT_NONE;
    const bool is_known = ethtool_ask(&info, device, ETHTOOL_MSG_LINKINFO_GET) &&
                          ethtool_number(&info, ETHTOOL_A_LINKINFO_PORT, &port) &&
                          port != PORT_NONE && port != PORT_OTHER;
    object_put_uint16(object, "MediaType", is_known ? port + 1 : 0);
}

static void put_link(struct object* object)
{
    union netlink_message modes;
    /* Without an answer the message is empty. */
    (void)ethtool_ask(&modes, object->device, ETHTOOL_MSG_LINKMODES_GET);
    put_settings(object, &modes);
    put_flow_control(object, &modes, object->device);
    put_medium(object, object->device);
}

void nic_put_port_link(struct object* object, const struct rtnetlink_link* link)
{
    nic_put_link_status(object, "LinkStatus", link);
    if (object_has_changes(object))
    {
        put_link(object);
    }
}

void nic_put_port_counters(struct object* object)
{
    struct nic_packets packets;
    union netlink_message message;
    struct rtnetlink_link link;
    if (!rtnetlink_ask(&link, object->device))
    {
        return;
    }
    nic_put_link_status(object, "LinkStatus", &link);
    nic_put_counters(object, &link, counters, sizeof counters / sizeof *counters);
    if (link.has_counters)
    {
        object_put_uint32(object, "DiscardedPkts",
                          link.counters.rx_dropped + link.counters.rx_missed_errors);
    }
    const bool has_packets = nic_ask_packets(&packets, object->device, &message);
    object_put_uint64(object, "ReceiveTotalMulticast",
                      has_packets ? packets.received_multicast : link.counters.multicast);
    if (has_packets)
    {
        object_put_uint64(object, "ReceiveTotalUnicast", packets.received_unicast);
        object_put_uint64(object, "ReceiveTotalBroadcast", packets.received_broadcast);
        object_put_uint64(object, "TransmitTotalUnicast", packets.sent_unicast);
        object_put_uint64(object, "TransmitTotalMulticast", packets.sent_multicast);
        object_put_uint64(object, "TransmitTotalBroadcast", packets.sent_broadcast);
    }
    for (size_t i = 0; i < sizeof statistics / sizeof *statistics; ++i)
    {
        const struct statistic* each = &statistics[i];
        uint64_t count = 0;
        bool is_known = ethtool_statistic(&message, each->group, each->id, &count);
        if (!is_known && each->offset != no_counter)
        {
            memcpy(&count, (const char*)&link.counters + each->offset, sizeof count);
            is_known = link.has_counters;
        }
        if (is_known)
        {
            object_put_uint32(object, each->member, count);
        }
    }
    nic_put_statistics_times(object);
}

static void put_capabilities(struct object* object, const struct nic_interface* interface)
{
    const char* device = interface->device;
    union netlink_message answer;
    uint64_t functions = 0;
    char driver[sysfs_path_size];
    const bool is_bound = sysfs_link_name(device, "device/driver", driver);
    object_put_byte(object, "RDMASupport",
                    object_switch(is_bound, sysfs_has_directory(device, "device/infiniband")));
    object_put_byte(object, "OnChipThermalSensor",
                    object_switch(is_bound, sysfs_has_directory(device, "device/hwmon")));
    /* The kernel has the file for each physical function that can have virtual ones. */
    (void)sysfs_number(device, "device/sriov_totalvfs", 10, &functions);
    object_put_byte(object, "VFSRIOVSupport", object_switch(interface->card.is_pci, functions > 0));

    bool is_known = ethtool_ask(&answer, device, ETHTOOL_MSG_WOL_GET);
    const struct nlattr* set = is_known ? netlink_find(&answer, ETHTOOL_A_WOL_MODES) : NULL;
    object_put_byte(object, "WOLSupport", object_switch(is_known, ethtool_is_filled(set)));
    is_known = ethtool_ask(&answer, device, ETHTOOL_MSG_EEE_GET);
    set = is_known ? netlink_find(&answer, ETHTOOL_A_EEE_MODES_OURS) : NULL;
    object_put_byte(object, "EnergyEfficientEthernet",
                    object_switch(is_known, ethtool_is_filled(set)));
    is_known = ethtool_ask(&answer, device, ETHTOOL_MSG_FEATURES_GET);
    set = is_known ? netlink_find(&answer, ETHTOOL_A_FEATURES_HW) : NULL;
    object_put_byte(object, "FCoEOffloadSupport",
                    object_switch(is_known, ethtool_has_name(set, "tx-fcoe-segmentation")));
}

void nic_put_port(struct object* object, const struct nic_interface* interface)
{
    struct firmware_versions versions;
    nic_put_driver_state(object, "OSDriverState", interface->device);
    firmware_versions_read(&versions, interface->card.function);
    object_put_string(object, "FamilyDriverVersion", versions.driver);
    /* What starts a machine from the network is UNDI's driver; without its version it isn't known
     * whether there is one. */
    object_put_byte(object, "PXEBootSupport", object_switch(versions.option_rom[0] != '\0', true));
    put_capabilities(object, interface);
    put_link(object);
}
