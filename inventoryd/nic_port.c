#include "ethtool.h"
#include "nic.h"
#include "sysfs.h"

#include <string.h>

/* This host's codes. The speed's property is a byte, so it holds a code instead of a rate. */
enum
{
    duplex_unknown = 0,
    duplex_full = 1,
    duplex_half = 2,
    speed_unknown = 255
};

static const unsigned int megabits[] = {10,    100,   1000,   2500,   5000,   10000, 25000,
                                        40000, 50000, 100000, 200000, 400000, 800000};

#define COUNTER(name) offsetof(struct rtnl_link_stats64, name)

static const struct nic_counter counters[] = {
    {"ReceiveTotalBytes", object_put_uint64, COUNTER(rx_bytes)},
    {"ReceiveTotalMulticast", object_put_uint64, COUNTER(multicast)},
    {"TransmitTotalBytes", object_put_uint64, COUNTER(tx_bytes)},
    {"ReceiveErrorPktFCSErrors", object_put_uint32, COUNTER(rx_crc_errors)},
    {"ReceiveErrorPktAlignmentErrors", object_put_uint32, COUNTER(rx_frame_errors)},
    {"DiscardedPkts", object_put_uint32, COUNTER(rx_dropped)},
    {"TransmitErrorPktLateCollision", object_put_uint32, COUNTER(tx_window_errors)},
    {"TransmitErrorPktExcessiveCollision", object_put_uint32, COUNTER(tx_aborted_errors)},
};

static unsigned int speed_code(uint32_t speed)
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

static unsigned int duplex_code(unsigned char duplex)
{
    return duplex == DUPLEX_FULL   ? duplex_full
           : duplex == DUPLEX_HALF ? duplex_half
                                   : duplex_unknown;
}

/* ReceiveFlowControl and TransmitFlowControl are what the port is set to, RXFlowControl and
 * TXFlowControl what is in effect: the same if pause frames aren't negotiated, and otherwise what
 * follows from the pause modes that the port and its partner advertise. By asymmetric pause modes
 * they can agree on one direction alone: from the side without symmetric pause to the other. */
static void read_flow_control(struct object* object, const char* device,
                              const union ethtool_link* link)
{
    enum
    {
        pause_bit = ETHTOOL_LINK_MODE_Pause_BIT,
        asymmetric_bit = ETHTOOL_LINK_MODE_Asym_Pause_BIT
    };
    struct ethtool_pauseparam pause = {.cmd = ETHTOOL_GPAUSEPARAM};
    const bool is_known = ethtool_ask(device, &pause, sizeof pause);
    const bool is_fixed = is_known && pause.autoneg == 0;
    const bool is_negotiated =
        ethtool_has_mode(link, ethtool_partner, ETHTOOL_LINK_MODE_Autoneg_BIT);
    const bool port_pauses = ethtool_has_mode(link, ethtool_advertised, pause_bit);
    const bool partner_pauses = ethtool_has_mode(link, ethtool_partner, pause_bit);
    const bool asymmetric = ethtool_has_mode(link, ethtool_advertised, asymmetric_bit) &&
                            ethtool_has_mode(link, ethtool_partner, asymmetric_bit);
    object_put_byte(object, "ReceiveFlowControl", object_switch(is_known, pause.rx_pause != 0));
    object_put_byte(object, "TransmitFlowControl", object_switch(is_known, pause.tx_pause != 0));
    object_put_byte(object, "RXFlowControl",
                    object_switch(is_fixed || is_negotiated,
                                  is_fixed ? pause.rx_pause != 0
                                           : port_pauses && (partner_pauses || asymmetric)));
    object_put_byte(object, "TXFlowControl",
                    object_switch(is_fixed || is_negotiated,
                                  is_fixed ? pause.tx_pause != 0
                                           : partner_pauses && (port_pauses || asymmetric)));
}

void nic_port_read(struct object* object, const char* device, const struct rtnetlink_link* link)
{
    union ethtool_link answer;
    const struct ethtool_link_settings* settings = &answer.settings;
    const bool is_known = ethtool_ask_link(device, &answer);
    nic_put_link_status(object, "LinkStatus", link);
    object_put_byte(object, "LinkSpeed", is_known ? speed_code(settings->speed) : speed_unknown);
    object_put_byte(object, "LinkDuplex",
                    is_known ? duplex_code(settings->duplex) : duplex_unknown);
    object_put_byte(object, "AutoNegotiation",
                    object_switch(is_known, settings->autoneg == AUTONEG_ENABLE));
    read_flow_control(object, device, &answer);
    nic_put_counters(object, link, counters, sizeof counters / sizeof *counters);
    nic_put_statistics_time(object);
}

static void put_capabilities(struct object* object, const char* device)
{
    static const char* const directories[][2] = {
        {"RDMASupport", "device/infiniband"},
        {"OnChipThermalSensor", "device/hwmon"},
    };
    struct ethtool_wolinfo wake = {.cmd = ETHTOOL_GWOL};
    struct ethtool_eee energy = {.cmd = ETHTOOL_GEEE};
    char directory[sysfs_path_size];
    uint64_t functions = 0;
    for (size_t i = 0; i < sizeof directories / sizeof *directories; ++i)
    {
        if (sysfs_join(directory, device, directories[i][1]) && sysfs_is_directory(directory))
        {
            object_put_byte(object, directories[i][0], switch_on);
        }
    }
    bool is_known = sysfs_number(device, "device/sriov_totalvfs", 10, &functions);
    object_put_byte(object, "VFSRIOVSupport", object_switch(is_known, functions > 0));
    is_known = ethtool_ask(device, &wake, sizeof wake);
    object_put_byte(object, "WOLSupport", object_switch(is_known, wake.supported != 0));
    is_known = ethtool_ask(device, &energy, sizeof energy);
    object_put_byte(object, "EnergyEfficientEthernet",
                    object_switch(is_known, energy.supported != 0));
}

bool nic_port_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                      const struct rtnetlink_link* link)
{
    const struct ethtool_drvinfo driver = ethtool_ask_driver(device);
    if (!object_publish(object, context, GANTRY_instantiate__com_orvane_velmar_system_NicPort,
                        "com.orvane.velmar.system.NicPort", link->name))
    {
        return false;
    }
    object_put_format(object, "FQDD", "NIC.%s", link->name);
    object_put_format(object, "FriendlyFQDD", "Network port %s", link->name);
    object_put_byte(object, "PartitionCount", 1);
    object_put_uint16(object, "MediaType", link->type);
    nic_put_driver_state(object, "OSDriverState", device);
    object_put_string(object, "FamilyDriverVersion", driver.version);
    put_capabilities(object, device);
    nic_port_read(object, device, link);
    return true;
}
