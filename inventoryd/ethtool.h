/*
 * What the driver of a network interface answers to the requests of linux/ethtool_netlink.h, and to
 * those of linux/ethtool.h that have no other form. `device` is the interface's directory, such as
 * /sys/devices/pci0000:00/0000:00:03.0/net/eth0. The answers in a record are in the directory's
 * files ethtool/N, ethtool/ioctl-N and module/A-B-P-O, as record.h says.
 */
#ifndef ETHTOOL_H
#define ETHTOOL_H

#include "netlink.h"

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>

/* Asks with an ETHTOOL_MSG_*_GET, for counters too where there are some. False if the driver has no
 * answer, or none for this process. */
bool ethtool_ask(union netlink_message* message, const char* device, uint8_t command);

/* A number in such an answer. */
bool ethtool_number(const union netlink_message* message, unsigned int type, uint64_t* number);

/* A counter of a group of standard statistics, an ETHTOOL_STATS_*, in the answer to
 * ETHTOOL_MSG_STATS_GET. */
bool ethtool_statistic(const union netlink_message* message, unsigned int group, unsigned int id,
                       uint64_t* number);

/* Whether a bit set lists a bit at all: of the modes that an interface supports, whether it
 * supports one. */
bool ethtool_is_filled(const struct nlattr* set);

/* Whether a bit is set in a bit set of an answer; by its number, or by its name. */
bool ethtool_has_bit(const struct nlattr* set, unsigned int bit);
bool ethtool_has_name(const struct nlattr* set, const char* name);

/* Half a page, 128 bytes, of the EEPROM of the interface's module. The lower half of each page is
 * page 0 at offset 0. */
enum
{
    ethtool_page_size = 128
};
struct ethtool_page
{
    uint8_t i2c_address; /* 0x50, or 0x51 */
    uint8_t bank;
    uint8_t page;
    uint8_t offset; /* 0 or 128 */
};
bool ethtool_read_page(const char* device, struct ethtool_page page,
                       uint8_t bytes[ethtool_page_size]);

/* Writes a page to the record, if one is written (record.h). */
void ethtool_record_page(const char* device, struct ethtool_page page,
                         const uint8_t bytes[ethtool_page_size]);

/* The request begins with its number, and the answer overwrites it. */
bool ethtool_ask_ioctl(const char* device, void* request, size_t size);

/* The texts are empty if there is no answer. */
struct ethtool_drvinfo ethtool_ask_driver(const char* device);

#endif
