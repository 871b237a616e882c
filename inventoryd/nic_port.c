#include "nic.h"

#include <inttypes.h>
#include <linux/if.h>
#include <stdio.h>
#include <string.h>

#define LINK(name) (offsetof(struct rtnl_link_stats64, name) + 1)
#define NO_STATISTIC 0, 0
#define MAC(name) ETHTOOL_STATS_ETH_MAC, ETHTOOL_A_STATS_ETH_MAC_##name
#define RMON(name) ETHTOOL_STATS_RMON, ETHTOOL_A_STATS_RMON_##name

enum
{
    rx_mcast = ETHTOOL_A_STATS_ETH_MAC_21_RX_MCAST,
    rx_bcast = ETHTOOL_A_STATS_ETH_MAC_22_RX_BCAST,
    tx_mcast = ETHTOOL_A_STATS_ETH_MAC_18_TX_MCAST,
    tx_bcast = ETHTOOL_A_STATS_ETH_MAC_19_TX_BCAST
};

/* The counters of a port, and of a partition. */
static const struct counter
{
    const char* of_port;
    const char* of_partition;
    /* A standard statistic, of drivers that have them: an ETHTOOL_STATS_* and the number there. */
    unsigned int group;
    unsigned int id;
    /* One more than the offset in struct rtnl_link_stats64 of the link's counter that stands for it
     * where a driver has no such statistic, or 0. */
    size_t place;
    unsigned int without[2]; /* what is counted there, too, and not in the property */
} counters[] = {
    {"ReceiveTotalBytes", "LanBytesRxCount", NO_STATISTIC, LINK(rx_bytes), {0}},
    {"TransmitTotalBytes", "LanBytesTxCount", NO_STATISTIC, LINK(tx_bytes), {0}},
    {"ReceiveTotalUnicast", "LanUnicastPktRXCount", MAC(5_RX_PKT), 0, {rx_mcast, rx_bcast}},
    {"ReceiveTotalMulticast", "LanMulticastPktRxCount", MAC(21_RX_MCAST), LINK(multicast), {0}},
    {"ReceiveTotalBroadcast", "LanBroadcastPktRxCount", MAC(22_RX_BCAST), 0, {0}},
    {"TransmitTotalUnicast", "LanUnicastPktTXCount", MAC(2_TX_PKT), 0, {tx_mcast, tx_bcast}},
    {"TransmitTotalMulticast", "LanMulticastPktTxCount", MAC(18_TX_MCAST), 0, {0}},
    {"TransmitTotalBroadcast", "LanBoradcastPktTxCount", MAC(19_TX_BCAST), 0, {0}},
    {"ReceiveErrorPktFCSErrors", "", MAC(6_FCS_ERR), LINK(rx_crc_errors), {0}},
    {"ReceiveErrorPktAlignmentErrors", "", MAC(7_ALIGN_ERR), LINK(rx_frame_errors), {0}},
    {"TransmitErrorPktSingleCollision", "", MAC(3_SINGLE_COL), 0, {0}},
    {"TransmitErrorPktMultipleCollision", "", MAC(4_MULTI_COL), 0, {0}},
    {"TransmitErrorPktLateCollision", "", MAC(10_LATE_COL), LINK(tx_window_errors), {0}},
    {"TransmitErrorPktExcessiveCollision", "", MAC(11_XS_COL), LINK(tx_aborted_errors), {0}},
    {"ReceiveRuntPkt", "", RMON(UNDERSIZE), 0, {0}},
    {"ReceiveJabberPkt", "", RMON(JABBER), 0, {0}},
};

/* What the settings of the link tell. The answer to ETHTOOL_MSG_LINKMODES_GET has a bit set of the
 * modes that the port advertises, as its mask those that it supports, and one of its partner's. */
static void put_modes(struct object* object, const union netlink_message* modes)
{
    /* This host's codes. The speed's property is a byte, so it holds a code instead of a rate. */
    const unsigned int duplex_full = 1;
    const unsigned int duplex_half = 2;
    const unsigned int speed_unknown = 255;
    static const unsigned int megabits[] = {10,    100,   1000,   2500,   5000,   10000, 25000,
                                            40000, 50000, 100000, 200000, 400000, 800000};
    uint64_t speed = 0;
    uint64_t duplex = DUPLEX_UNKNOWN;
    uint64_t negotiates = AUTONEG_DISABLE;
    unsigned int code = sizeof megabits / sizeof *megabits;
    (void)netlink_number(netlink_find(modes, ETHTOOL_A_LINKMODES_SPEED), &speed);
    (void)netlink_number(netlink_find(modes, ETHTOOL_A_LINKMODES_DUPLEX), &duplex);
    const bool is_known =
        netlink_number(netlink_find(modes, ETHTOOL_A_LINKMODES_AUTONEG), &negotiates);
    while (code > 0 && megabits[code - 1] != speed)
    {
        --code;
    }
    object_put_number(object, "LinkSpeed", code > 0 ? code : speed_unknown);
    object_put_number(object, "LinkDuplex",
                      duplex == DUPLEX_FULL   ? duplex_full
                      : duplex == DUPLEX_HALF ? duplex_half
                                              : 0);
    object_put_switch(object, "AutoNegotiation", is_known, negotiates == AUTONEG_ENABLE);
}

/* ReceiveFlowControl and TransmitFlowControl are what the port is set to, RXFlowControl and
 * TXFlowControl what is in effect: the same if pause frames aren't negotiated, and otherwise what
 * follows from the pause modes that the port and its partner advertise. By asymmetric pause modes
 * they can agree on one direction alone: from the side without symmetric pause to the other. */
static void put_flow_control(struct object* object, const union netlink_message* modes)
{
    union netlink_message pause;
    uint64_t negotiates = 0;
    uint64_t receives = 0;
    uint64_t sends = 0;
    const struct nlattr* own = netlink_find(modes, ETHTOOL_A_LINKMODES_OURS);
    const struct nlattr* partner = netlink_find(modes, ETHTOOL_A_LINKMODES_PEER);
    const bool is_known =
        ethtool_ask(&pause, object->device, ETHTOOL_MSG_PAUSE_GET) &&
        netlink_number(netlink_find(&pause, ETHTOOL_A_PAUSE_AUTONEG), &negotiates) &&
        netlink_number(netlink_find(&pause, ETHTOOL_A_PAUSE_RX), &receives) &&
        netlink_number(netlink_find(&pause, ETHTOOL_A_PAUSE_TX), &sends);
    const bool is_fixed = is_known && negotiates == 0;
    const bool is_effect_known = is_fixed || ethtool_has_bit(partner, "Autoneg");
    const bool port_pauses = ethtool_has_bit(own, "Pause");
    const bool partner_pauses = ethtool_has_bit(partner, "Pause");
    const bool asymmetric =
        ethtool_has_bit(own, "Asym_Pause") && ethtool_has_bit(partner, "Asym_Pause");
    object_put_switch(object, "ReceiveFlowControl", is_known, receives != 0);
    object_put_switch(object, "TransmitFlowControl", is_known, sends != 0);
    object_put_switch(object, "RXFlowControl", is_effect_known,
                      is_fixed ? receives != 0 : port_pauses && (partner_pauses || asymmetric));
    object_put_switch(object, "TXFlowControl", is_effect_known,
                      is_fixed ? sends != 0 : partner_pauses && (port_pauses || asymmetric));
}

void nic_put_settings(struct object* object)
{
    union netlink_message answer;
    uint64_t port = PORT_NONE;
    /* Without an answer the message is empty. */
    (void)ethtool_ask(&answer, object->device, ETHTOOL_MSG_LINKMODES_GET);
    put_modes(object, &answer);
    put_flow_control(object, &answer);
    /* This host's code is the port's kind of linux/ethtool.h and 1, so that 0 is unknown. */
    const bool is_known = ethtool_ask(&answer, object->device, ETHTOOL_MSG_LINKINFO_GET) &&
                          netlink_number(netlink_find(&answer, ETHTOOL_A_LINKINFO_PORT), &port) &&
                          port != PORT_NONE && port != PORT_OTHER;
    object_put_number(object, "MediaType", is_known ? port + 1 : 0);
}

void nic_put_addresses(struct object* object, const struct rtnetlink_link* link)
{
    const bool is_permanent = strcmp(link->address, link->permanent_address) == 0;
    object_put_string(object, "PermanentMACAddress", link->permanent_address);
    object_put_string(object, "VirtualMACAddress", is_permanent ? "" : link->address);
}

void nic_put_link(struct object* object, const struct rtnetlink_link* link)
{
    const bool is_up = link->state == IF_OPER_UP;
    const bool is_down = link->state == IF_OPER_DOWN || link->state == IF_OPER_LOWERLAYERDOWN;
    adapter_put_link(object, is_up || is_down, is_up);
    nic_put_addresses(object, link);
}

static void put_counter(struct object* object, const struct counter* counter,
                        const union netlink_message* statistics, const struct rtnetlink_link* link)
{
    uint64_t count = 0;
    bool is_known =
        counter->group != 0 && ethtool_statistic(statistics, counter->group, counter->id, &count);
    for (size_t i = 0; is_known && i < 2 && counter->without[i] != 0; ++i)
    {
        uint64_t part = 0;
        is_known = ethtool_statistic(statistics, counter->group, counter->without[i], &part) &&
                   part <= count;
        count -= part;
    }
    if (!is_known && counter->place != 0 && link->has_counters)
    {
        memcpy(&count, (const char*)&link->counters + counter->place - 1, sizeof count);
        is_known = true;
    }
    if (is_known)
    {
        object_put_counter(object, counter->of_port, count);
        object_put_counter(object, counter->of_partition, count);
    }
}

/* The port of an RDMA adapter that the interface's device is. */
static void put_rdma(void* data, const char* adapter)
{
    struct object* object = data;
    char port[sysfs_path_size];
    char place[sizeof "ports/18446744073709551615"];
    uint64_t number = 0;
    /* dev_port counts the adapter's ports from 0, the adapter's directories from 1. */
    number = sysfs_number(object->device, "dev_port", 10, &number) ? number + 1 : 1;
    snprintf(place, sizeof place, "ports/%" PRIu64, number);
    if (sysfs_join(port, adapter, place))
    {
        adapter_put_rdma(object, port);
    }
}

void nic_put_counters(struct object* object)
{
    union netlink_message statistics;
    struct rtnetlink_link link;
    if (!rtnetlink_ask(&link, object->device))
    {
        return;
    }
    nic_put_link(object, &link);
    /* Without an answer the message is empty. */
    (void)ethtool_ask(&statistics, object->device, ETHTOOL_MSG_STATS_GET);
    for (size_t i = 0; i < sizeof counters / sizeof *counters; ++i)
    {
        put_counter(object, &counters[i], &statistics, &link);
    }
    if (link.has_counters)
    {
        object_put_counter(object, "DiscardedPkts",
                           link.counters.rx_dropped + link.counters.rx_missed_errors);
    }
    if (object_type(object, "RDMARxTotalBytes") != '\0')
    {
        sysfs_each(object->device, "device/infiniband", put_rdma, object);
    }
    object_put_statistics_times(object);
}

/* A mode that is supported is listed in the set, whether it is on or off. */
static bool has_modes(const union netlink_message* answer, unsigned int set)
{
    const struct nlattr* bits = netlink_find_in(netlink_find(answer, set), ETHTOOL_A_BITSET_BITS);
    return netlink_find_in(bits, ETHTOOL_A_BITSET_BITS_BIT) != NULL;
}

void nic_put_port(struct object* object, const struct adapter_port* port)
{
    union netlink_message answer;
    adapter_put_capabilities(object, port);
    if (port->card.is_pci)
    {
        versions_put(object, port->card.function, false);
    }
    bool is_known = ethtool_ask(&answer, port->device, ETHTOOL_MSG_WOL_GET);
    object_put_switch(object, "WOLSupport", is_known, has_modes(&answer, ETHTOOL_A_WOL_MODES));
    is_known = ethtool_ask(&answer, port->device, ETHTOOL_MSG_EEE_GET);
    object_put_switch(object, "EnergyEfficientEthernet", is_known,
                      has_modes(&answer, ETHTOOL_A_EEE_MODES_OURS));
    is_known = ethtool_ask(&answer, port->device, ETHTOOL_MSG_FEATURES_GET);
    object_put_switch(
        object, "FCoEOffloadSupport", is_known,
        ethtool_has_bit(netlink_find(&answer, ETHTOOL_A_FEATURES_HW), "tx-fcoe-segmentation"));
    nic_put_settings(object);
}
