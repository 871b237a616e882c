#include "firmware_versions.h"

#include "devices.h"
#include "ethtool.h"
#include "record.h"

#include <linux/devlink.h>
#include <stdio.h>
#include <string.h>

static void copy(char to[firmware_version_size], const char* from)
{
    snprintf(to, firmware_version_size, "%.63s", from);
}

static void ask_interface(void* data, const char* path, const char* name)
{
    struct firmware_versions* versions = data;
    (void)name;
    if (versions->driver[0] == '\0')
    {
        const struct ethtool_drvinfo driver = ethtool_ask_driver(path);
        copy(versions->firmware, driver.fw_version);
        copy(versions->option_rom, driver.erom_version);
        copy(versions->driver, driver.version);
    }
}

static void ask_interfaces(struct firmware_versions* versions, const char* directory)
{
    char interfaces[sysfs_path_size];
    if (sysfs_join(interfaces, directory, "net"))
    {
        sysfs_each(interfaces, ask_interface, versions);
    }
}

/* The device of a virtual machine's adapter is one level below its PCI device. */
static void ask_virtual(void* data, const char* path, const char* name)
{
    if (strncmp(name, "virtio", strlen("virtio")) == 0)
    {
        ask_interfaces(data, path);
    }
}

/* devlink's names are in its documentation of the answer. */
static void read_version(struct firmware_versions* versions, const struct nlattr* attribute)
{
    char name[firmware_version_size];
    char value[firmware_version_size];
    if (!netlink_text(netlink_find_in(attribute, DEVLINK_ATTR_INFO_VERSION_NAME), name,
                      sizeof name) ||
        !netlink_text(netlink_find_in(attribute, DEVLINK_ATTR_INFO_VERSION_VALUE), value,
                      sizeof value))
    {
        return;
    }
    if (strcmp(name, "fw") == 0 || (strcmp(name, "fw.mgmt") == 0 && versions->firmware[0] == '\0'))
    {
        copy(versions->firmware, value);
    }
    else if (strcmp(name, "fw.undi") == 0)
    {
        copy(versions->option_rom, value);
    }
    else if (strcmp(name, "board.part_number") == 0)
    {
        copy(versions->part_number, value);
    }
}

static bool is_serial(const struct nlattr* attribute)
{
    return mnl_attr_get_type(attribute) == DEVLINK_ATTR_INFO_SERIAL_NUMBER ||
           mnl_attr_get_type(attribute) == DEVLINK_ATTR_INFO_BOARD_SERIAL_NUMBER;
}

/* In the answer, and in a record of it. */
static void hide_serials(union netlink_message* message, const char* function)
{
    char path[sysfs_path_size];
    for (const struct nlattr* each = NULL; (each = netlink_next(message, each)) != NULL;)
    {
        if (is_serial(each) && !sysfs_serials)
        {
            memset(mnl_attr_get_payload(each), 'X', mnl_attr_get_payload_len(each));
        }
    }
    if (sysfs_join(path, function, "devlink"))
    {
        record_file(path, message, message->header.nlmsg_len, 0444);
    }
}

static bool ask_devlink(union netlink_message* message, const char* function)
{
    if (!netlink_begin_generic(message, DEVLINK_GENL_NAME, DEVLINK_CMD_INFO_GET))
    {
        return false;
    }
    mnl_attr_put_strz(&message->header, DEVLINK_ATTR_BUS_NAME, "pci");
    mnl_attr_put_strz(&message->header, DEVLINK_ATTR_DEV_NAME, devices_name(function));
    if (!netlink_ask(message, NETLINK_GENERIC, function, "devlink"))
    {
        return false;
    }
    hide_serials(message, function);
    return true;
}

void firmware_versions_read(struct firmware_versions* versions, const char* function)
{
    union netlink_message message;
    memset(versions, 0, sizeof *versions);
    ask_interfaces(versions, function);
    sysfs_each(function, ask_virtual, versions);
    if (!ask_devlink(&message, function))
    {
        return;
    }
    for (const struct nlattr* each = NULL; (each = netlink_next(&message, each)) != NULL;)
    {
        const unsigned int type = mnl_attr_get_type(each);
        if (type == DEVLINK_ATTR_INFO_VERSION_FIXED || type == DEVLINK_ATTR_INFO_VERSION_RUNNING)
        {
            read_version(versions, each);
        }
        else if (type == DEVLINK_ATTR_INFO_SERIAL_NUMBER && sysfs_serials)
        {
            (void)netlink_text(each, versions->serial_number, sizeof versions->serial_number);
        }
    }
}
