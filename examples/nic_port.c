#include "attribute.h"
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

static const unsigned int megabits[] = {10,    100,   1000,  2500,  5000,
                                        10000, 25000, 40000, 50000, 100000};

static const struct attribute counters[] = {
    {"ReceiveTotalBytes", "statistics/rx_bytes", object_put_uint64, 10},
    {"TransmitTotalBytes", "statistics/tx_bytes", object_put_uint64, 10},
    {"TransmitTotalUnicast", "statistics/tx_packets", object_put_uint64, 10},
    {"ReceiveErrorPktFCSErrors", "statistics/rx_crc_errors", object_put_uint32, 10},
    {"ReceiveErrorPktAlignmentErrors", "statistics/rx_frame_errors", object_put_uint32, 10},
    {"ReceiveRuntPkt", "statistics/rx_length_errors", object_put_uint32, 10},
    {"DiscardedPkts", "statistics/rx_dropped", object_put_uint32, 10},
    {"TransmitErrorPktMultipleCollision", "statistics/collisions", object_put_uint32, 10},
};

static const struct attribute identity[] = {
    {"MediaType", "type", object_put_uint16, 10},
};

static unsigned int speed_code(const char* device)
{
    uint64_t speed = 0;
    /* The speed of a port that is down can't be read. */
    if (sysfs_number(device, "speed", 10, &speed))
    {
        for (unsigned int i = 0; i < sizeof megabits / sizeof *megabits; ++i)
        {
            if (megabits[i] == speed)
            {
                return i + 1;
            }
        }
    }
    return speed_unknown;
}

static unsigned int duplex_code(const char* device)
{
    char duplex[sysfs_text_size];
    if (!sysfs_text(device, "duplex", duplex))
    {
        return duplex_unknown;
    }
    return strcmp(duplex, "full") == 0   ? duplex_full
           : strcmp(duplex, "half") == 0 ? duplex_half
                                         : duplex_unknown;
}

void nic_port_read(struct object* object, const char* device)
{
    uint64_t unicast = 0;
    uint64_t multicast = 0;
    nic_put_link_status(object, "LinkStatus", device);
    object_put_byte(object, "LinkSpeed", speed_code(device));
    object_put_byte(object, "LinkDuplex", duplex_code(device));
    attributes_read(object, device, counters, sizeof counters / sizeof *counters);
    if (nic_received_packets(device, &unicast, &multicast))
    {
        object_put_uint64(object, "ReceiveTotalUnicast", unicast);
        object_put_uint64(object, "ReceiveTotalMulticast", multicast);
    }
    object_put_uint32(object, "StatisticsTime", nic_now());
}

bool nic_port_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                      const char* name)
{
    if (!object_publish(object, context, GANTRY_instantiate__com_orvane_velmar_system_NicPort,
                        "com.orvane.velmar.system.NicPort", name))
    {
        return false;
    }
    object_put_format(object, "FQDD", "NIC.%s", name);
    object_put_format(object, "FriendlyFQDD", "Network port %s", name);
    object_put_uint32(object, "StatisticsStartTime", nic_now());
    object_put_byte(object, "PartitionCount", 1);
    attributes_read(object, device, identity, sizeof identity / sizeof *identity);
    nic_port_read(object, device);
    return true;
}
