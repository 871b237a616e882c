#include "card.h"
#include "netlink.h"

#include <linux/devlink.h>
#include <stdio.h>
#include <string.h>

enum
{
    text_size = 64
};

/* An empty text is unknown. */
struct versions
{
    char firmware[text_size];
    char option_rom[text_size]; /* what starts a machine from the network */
    char part_number[text_size];
    char serial_number[text_size];
    char driver[text_size];
};

static void ask_interface(void* data, const char* path)
{
    struct versions* versions = data;
    struct ethtool_drvinfo driver = {.cmd = ETHTOOL_GDRVINFO};
    if (versions->driver[0] == '\0' && ethtool_ask_ioctl(path, &driver, sizeof driver))
    {
        /* None of these must end behind its field. */
        snprintf(versions->firmware, text_size, "%.*s", (int)sizeof driver.fw_version,
                 driver.fw_version);
        snprintf(versions->option_rom, text_size, "%.*s", (int)sizeof driver.erom_version,
                 driver.erom_version);
        snprintf(versions->driver, text_size, "%.*s", (int)sizeof driver.version, driver.version);
    }
}

/* The device of a virtual machine's adapter is one level below its PCI device. */
static void ask_virtual(void* data, const char* path)
{
    if (strncmp(sysfs_name(path), "virtio", strlen("virtio")) == 0)
    {
        sysfs_each(path, "net", ask_interface, data);
    }
}

/* devlink's names are in its documentation of the answer. */
static void read_version(struct versions* versions, const struct nlattr* attribute)
{
    char name[text_size] = "";
    const struct nlattr* value = netlink_find_in(attribute, DEVLINK_ATTR_INFO_VERSION_VALUE);
    (void)netlink_text(netlink_find_in(attribute, DEVLINK_ATTR_INFO_VERSION_NAME), name,
                       sizeof name);
    const bool is_firmware =
        strcmp(name, "fw") == 0 || (strcmp(name, "fw.mgmt") == 0 && versions->firmware[0] == '\0');
    char* text = is_firmware                              ? versions->firmware
                 : strcmp(name, "fw.undi") == 0           ? versions->option_rom
                 : strcmp(name, "board.part_number") == 0 ? versions->part_number
                                                          : NULL;
    if (text != NULL)
    {
        (void)netlink_text(value, text, text_size);
    }
}

/* Serial numbers are overwritten in the answer and in a record of it, unless they are wanted. */
static void read_answer(struct versions* versions, union netlink_message* message)
{
    const struct nlattr* each = NULL;
    while ((each = NETLINK_NEXT(message, each)) != NULL)
    {
        switch (mnl_attr_get_type(each))
        {
        case DEVLINK_ATTR_INFO_VERSION_FIXED:
        case DEVLINK_ATTR_INFO_VERSION_RUNNING:
            read_version(versions, each);
            break;
        case DEVLINK_ATTR_INFO_SERIAL_NUMBER:
        case DEVLINK_ATTR_INFO_BOARD_SERIAL_NUMBER:
            if (!sysfs_serials)
            {
                memset(mnl_attr_get_payload(each), 'X', mnl_attr_get_payload_len(each));
            }
            else if (mnl_attr_get_type(each) == DEVLINK_ATTR_INFO_SERIAL_NUMBER)
            {
                (void)netlink_text(each, versions->serial_number, text_size);
            }
            break;
        default:
            break;
        }
    }
}

static void put(struct object* object, const char* member, const char* text)
{
    object_put_string(object, member, text[0] != '\0' ? text : NULL);
}

void versions_put(struct object* object, const char* function, bool with_numbers)
{
    union netlink_message message;
    struct versions versions;
    memset(&versions, 0, sizeof versions);
    sysfs_each(function, "net", ask_interface, &versions);
    sysfs_each(function, "", ask_virtual, &versions);
    if (devlink_begin(&message, function, DEVLINK_CMD_INFO_GET) &&
        netlink_ask(&message, NETLINK_GENERIC, function, "devlink"))
    {
        read_answer(&versions, &message);
        record_answer(function, "devlink", &message, message.header.nlmsg_len);
    }
    put(object, "FamilyVersion", versions.firmware);
    put(object, "FirmwareVersion", versions.firmware);
    put(object, "ControllerBIOSVersion", versions.option_rom);
    put(object, "FamilyDriverVersion", versions.driver);
    /* What starts a machine from the network is UNDI's driver; without its version it isn't known
     * whether there is one. */
    object_put_switch(object, "PXEBootSupport", versions.option_rom[0] != '\0', true);
    if (with_numbers)
    {
        put(object, "PartNumber", versions.part_number);
        put(object, "SerialNumber", versions.serial_number);
    }
}
