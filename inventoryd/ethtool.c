#define _GNU_SOURCE /* SOCK_CLOEXEC and struct ifreq */

#include "netlink.h"

#include <linux/sockios.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

static bool begin(union netlink_message* message, const char* device, uint8_t command)
{
    static struct netlink_family family = {ETHTOOL_GENL_NAME, 0};
    if (!netlink_begin_generic(message, &family, command))
    {
        return false;
    }
    /* The header is the first attribute of any other request. */
    const uint16_t type = command == ETHTOOL_MSG_STATS_GET ? ETHTOOL_A_STATS_HEADER : 1;
    struct nlattr* header = mnl_attr_nest_start(&message->header, type);
    mnl_attr_put_strz(&message->header, ETHTOOL_A_HEADER_DEV_NAME, sysfs_name(device));
    mnl_attr_nest_end(&message->header, header);
    return true;
}

bool ethtool_ask(union netlink_message* message, const char* device, uint8_t command)
{
    char file[sizeof "ethtool/255"];
    snprintf(file, sizeof file, "ethtool/%u", command);
    if (!begin(message, device, command))
    {
        return false;
    }
    if (command == ETHTOOL_MSG_STATS_GET)
    {
        const uint32_t groups = (1U << (unsigned int)__ETHTOOL_STATS_CNT) - 1;
        struct nlattr* set = mnl_attr_nest_start(&message->header, ETHTOOL_A_STATS_GROUPS);
        mnl_attr_put(&message->header, ETHTOOL_A_BITSET_NOMASK, 0, NULL);
        mnl_attr_put_u32(&message->header, ETHTOOL_A_BITSET_SIZE, __ETHTOOL_STATS_CNT);
        mnl_attr_put_u32(&message->header, ETHTOOL_A_BITSET_VALUE, groups);
        mnl_attr_nest_end(&message->header, set);
    }
    return netlink_ask(message, NETLINK_GENERIC, device, file);
}

bool ethtool_statistic(const union netlink_message* message, unsigned int group, unsigned int id,
                       uint64_t* number)
{
    const struct nlattr* each = NULL;
    while ((each = NETLINK_NEXT(message, each)) != NULL)
    {
        const struct nlattr* counter = NULL;
        uint64_t found = 0;
        if (mnl_attr_get_type(each) != ETHTOOL_A_STATS_GRP ||
            !netlink_number(netlink_find_in(each, ETHTOOL_A_STATS_GRP_ID), &found) ||
            found != group)
        {
            continue;
        }
        while ((counter = netlink_next_in(each, counter)) != NULL)
        {
            if (mnl_attr_get_type(counter) == ETHTOOL_A_STATS_GRP_STAT &&
                netlink_number(netlink_find_in(counter, id), number))
            {
                return true;
            }
        }
    }
    return false;
}

bool ethtool_has_bit(const struct nlattr* set, const char* name)
{
    const struct nlattr* bits = netlink_find_in(set, ETHTOOL_A_BITSET_BITS);
    const struct nlattr* each = NULL;
    while ((each = netlink_next_in(bits, each)) != NULL)
    {
        char text[64];
        if (netlink_text(netlink_find_in(each, ETHTOOL_A_BITSET_BIT_NAME), text, sizeof text) &&
            strcmp(text, name) == 0)
        {
            /* A set without a mask has only the bits that are set. */
            return netlink_find_in(set, ETHTOOL_A_BITSET_NOMASK) != NULL ||
                   netlink_find_in(each, ETHTOOL_A_BITSET_BIT_VALUE) != NULL;
        }
    }
    return false;
}

bool ethtool_read_page(const char* device, const char* file, uint8_t bytes[ethtool_page_size])
{
    union netlink_message message;
    unsigned int i2c_address = 0;
    unsigned int bank = 0;
    unsigned int page = 0;
    unsigned int offset = 0;
    if (sysfs_is_recorded())
    {
        return sysfs_bytes(device, file, bytes, ethtool_page_size) == ethtool_page_size;
    }
    if (sscanf(file, "module/%2x-%2x-%2x-%2x", &i2c_address, &bank, &page, &offset) != 4 ||
        !begin(&message, device, ETHTOOL_MSG_MODULE_EEPROM_GET))
    {
        return false;
    }
    mnl_attr_put_u32(&message.header, ETHTOOL_A_MODULE_EEPROM_OFFSET, offset);
    mnl_attr_put_u32(&message.header, ETHTOOL_A_MODULE_EEPROM_LENGTH, ethtool_page_size);
    mnl_attr_put_u8(&message.header, ETHTOOL_A_MODULE_EEPROM_PAGE, (uint8_t)page);
    mnl_attr_put_u8(&message.header, ETHTOOL_A_MODULE_EEPROM_BANK, (uint8_t)bank);
    mnl_attr_put_u8(&message.header, ETHTOOL_A_MODULE_EEPROM_I2C_ADDRESS, (uint8_t)i2c_address);
    const struct nlattr* data = netlink_ask(&message, NETLINK_GENERIC, device, NULL)
                                    ? netlink_find(&message, ETHTOOL_A_MODULE_EEPROM_DATA)
                                    : NULL;
    if (data == NULL || mnl_attr_get_payload_len(data) != ethtool_page_size)
    {
        return false;
    }
    memcpy(bytes, mnl_attr_get_payload(data), ethtool_page_size);
    return true;
}

bool ethtool_ask_ioctl(const char* device, void* request, size_t size)
{
    static int fd = -1; /* for as long as the process runs */
    char file[sizeof "ethtool/ioctl-4294967295"];
    snprintf(file, sizeof file, "ethtool/ioctl-%u", *(const unsigned int*)request);
    if (sysfs_is_recorded())
    {
        return sysfs_bytes(device, file, request, size) == size;
    }
    if (fd < 0)
    {
        /* The kernel takes these requests on a socket of any family. */
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    struct ifreq parameter = {.ifr_data = request};
    snprintf(parameter.ifr_name, sizeof parameter.ifr_name, "%s", sysfs_name(device));
    if (ioctl(fd, SIOCETHTOOL, &parameter) != 0)
    {
        return false;
    }
    record_answer(device, file, request, size);
    return true;
}
