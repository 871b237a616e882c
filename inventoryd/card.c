#include "card.h"

#include "attribute.h"
#include "devices.h"
#include "hwdb.h"
#include "vpd.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const struct attribute identity[] = {
    {"VendorID", "vendor", NULL, 0},
    {"DeviceID", "device", NULL, 0},
    {"SubVendorID", "subsystem_vendor", NULL, 0},
    {"SubDeviceID", "subsystem_device", NULL, 0},
    {"Revision", "revision", NULL, 0},
    {"BSInfo_VendorID", "vendor", object_put_uint16, 10},
    {"BSInfo_DeviceID", "device", object_put_uint16, 10},
    {"BSInfo_SubVendorID", "subsystem_vendor", object_put_uint16, 10},
    {"BSInfo_SubDeviceID", "subsystem_device", object_put_uint16, 10},
};

/* Of a USB device. */
static const struct attribute usb_identity[] = {
    {"VendorID", "idVendor", NULL, 0},
    {"DeviceID", "idProduct", NULL, 0},
    {"Revision", "bcdDevice", NULL, 0},
    {"SerialNumber", "serial", NULL, 0},
    {"ProductName", "product", NULL, 0},
    {"VendorName", "manufacturer", NULL, 0},
    {"BSInfo_VendorID", "idVendor", object_put_uint16, 16},
    {"BSInfo_DeviceID", "idProduct", object_put_uint16, 16},
};

/* A USB device is named after its bus and the ports on the way to it, such as 1-2.4; its interfaces
 * have a colon behind that. */
static bool is_usb_device(const char* name)
{
    return strchr(name, '-') != NULL && name[strspn(name, "0123456789-.")] == '\0';
}

static bool is_virtual_function(const char* function)
{
    char physical[sysfs_path_size];
    return sysfs_link_name(function, "physfn", physical);
}

bool card_find(struct card* card, const char* device)
{
    char* const path = card->function;
    memset(card, 0, sizeof *card);
    if (snprintf(path, sizeof card->function, "%s", device) >= (int)sizeof card->function)
    {
        return false;
    }
    for (char* slash = NULL; (slash = strrchr(path, '/')) != NULL; *slash = '\0')
    {
        if (is_usb_device(slash + 1))
        {
            snprintf(card->name, sizeof card->name, "USB.%.*s", card_name_size - 8, slash + 1);
            break;
        }
        if (pci_location_parse(slash + 1, &card->location))
        {
            snprintf(card->name, sizeof card->name, "%04x:%02x:%02x", card->location.segment,
                     card->location.bus, card->location.device);
            card->is_pci = true;
            break;
        }
    }
    return card->name[0] != '\0' && !(card->is_pci && is_virtual_function(path));
}

bool card_has_class(const char* function, unsigned int code)
{
    uint64_t class = 0;
    return sysfs_number(function, "class", 10, &class) && class >> 16 == code >> 8 &&
           ((code & 0xFF) == 0xFF || (class >> 8 & 0xFF) == (code & 0xFF)) &&
           !is_virtual_function(function);
}

void card_put_functions(struct object* object, const struct card* card)
{
    uint64_t most = 0;
    uint64_t count = 0;
    if (!card->is_pci)
    {
        return;
    }
    (void)sysfs_number(card->function, "sriov_totalvfs", 10, &most);
    (void)sysfs_number(card->function, "sriov_numvfs", 10, &count);
    object_put_uint16(object, "NumberPCIEFunctionsSupported", most + 1);
    object_put_uint16(object, "NumberPCIEFunctionsEnabled", count + 1);
}

static void put_node(struct object* object, const struct card* card)
{
    enum
    {
        no_node = 0xFFFF
    };
    uint64_t node = no_node;
    /* The kernel has -1 for none, which is no number here. */
    (void)sysfs_number(card->function, "numa_node", 10, &node);
    object_put_uint16(object, "CPUAffinity", node);
}

void card_put_location(struct object* object, const struct card* card)
{
    if (card->is_pci)
    {
        object_put_uint32(object, "PCIBus", card->location.bus);
        object_put_uint32(object, "PCIDevice", card->location.device);
        object_put_uint32(object, "PCIFunction", card->location.function);
    }
    put_node(object, card);
}

void card_put_slot(struct object* object, const struct card* card, const char* fqdd)
{
    static const struct hwdb_members names = {.vendor = "VendorName", .product = "ProductName"};
    object_put_string(object, "FQDD", fqdd);
    object_put_string(object, "Key", fqdd);
    object_put_string(object, "BSInfo_Key", fqdd);
    object_put_byte(object, "ControllerCount", 1);
    put_node(object, card);
    if (!card->is_pci)
    {
        attributes_read(object, card->function, usb_identity,
                        sizeof usb_identity / sizeof *usb_identity);
        return;
    }
    attributes_read(object, card->function, identity, sizeof identity / sizeof *identity);
    object_put_byte(object, "BSInfo_Bus", card->location.bus);
    object_put_byte(object, "BSInfo_Device", card->location.device);
    object_put_byte(object, "BSInfo_Function", card->location.function);
    hwdb_put(object, card->function, NULL, names);
    vpd_put(object, card->function);
}
