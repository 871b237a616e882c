#include "card.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

bool pci_location_parse(const char* address, struct pci_location* location)
{
    char behind = '\0';
    return sscanf(address, "%8" SCNx32 ":%2" SCNx32 ":%2" SCNx32 ".%1" SCNx32 "%c",
                  &location->segment, &location->bus, &location->device, &location->function,
                  &behind) == 4;
}

/* A USB device is named after its bus and the ports on the way to it, such as 1-2.4; its interfaces
 * have a colon behind that. A network interface may be called like it. */
static bool is_usb_device(const char* path)
{
    const char* name = sysfs_name(path);
    char vendor[sysfs_text_size];
    return strchr(name, '-') != NULL && name[strspn(name, "0123456789-.")] == '\0' &&
           sysfs_text(path, "idVendor", vendor);
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
        if (is_usb_device(path))
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

static void put_node(struct object* object, const struct card* card)
{
    const uint64_t no_node = 0xFFFF;
    uint64_t node = no_node;
    /* The kernel has -1 for none, which is no number here. */
    (void)sysfs_number(card->function, "numa_node", 10, &node);
    object_put_number(object, "CPUAffinity", node);
}

void card_put_function(struct object* object, const struct card* card)
{
    uint64_t most = 0;
    uint64_t count = 0;
    put_node(object, card);
    if (!card->is_pci)
    {
        return;
    }
    (void)sysfs_number(card->function, "sriov_totalvfs", 10, &most);
    (void)sysfs_number(card->function, "sriov_numvfs", 10, &count);
    object_put_number(object, "NumberPCIEFunctionsSupported", most + 1);
    object_put_number(object, "NumberPCIEFunctionsEnabled", count + 1);
    object_put_number(object, "PCIBus", card->location.bus);
    object_put_number(object, "PCIDevice", card->location.device);
    object_put_number(object, "PCIFunction", card->location.function);
}

void card_put_identity(struct object* object, const char* function)
{
    static const struct row rows[] = {
        {"VendorID", "vendor", row_plain},
        {"DeviceID", "device", row_plain},
        {"SubVendorID", "subsystem_vendor", row_plain},
        {"SubDeviceID", "subsystem_device", row_plain},
        {"Revision", "revision", row_plain},
        {"BSInfo_VendorID", "vendor", row_plain},
        {"BSInfo_DeviceID", "device", row_plain},
        {"BSInfo_SubVendorID", "subsystem_vendor", row_plain},
        {"BSInfo_SubDeviceID", "subsystem_device", row_plain},
        {0},
    };
    sysfs_put(object, function, rows);
    hwdb_put(object, function, NULL);
}

void card_put_slot(struct object* object, const struct card* card, const char* fqdd)
{
    static const struct row of_usb_device[] = {
        {"VendorID", "idVendor", row_plain},
        {"DeviceID", "idProduct", row_plain},
        {"Revision", "bcdDevice", row_plain},
        {"SerialNumber", "serial", row_plain},
        {"ProductName", "product", row_plain},
        {"VendorName", "manufacturer", row_plain},
        {"BSInfo_VendorID", "idVendor", row_hexadecimal},
        {"BSInfo_DeviceID", "idProduct", row_hexadecimal},
        {0},
    };
    uint64_t lanes = 0;
    object_put_string(object, "FQDD", fqdd);
    object_put_string(object, "Key", fqdd);
    object_put_string(object, "BSInfo_Key", fqdd);
    object_put_number(object, "ControllerCount", 1);
    put_node(object, card);
    if (!card->is_pci)
    {
        sysfs_put(object, card->function, of_usb_device);
        return;
    }
    card_put_identity(object, card->function);
    object_put_number(object, "BSInfo_Bus", card->location.bus);
    object_put_number(object, "BSInfo_Device", card->location.device);
    object_put_number(object, "BSInfo_Function", card->location.function);
    if (sysfs_number(card->function, "current_link_width", 10, &lanes) && lanes > 0)
    {
        object_put_format(object, "DataBusWidth", "x%" PRIu64, lanes);
    }
    versions_put(object, card->function, !vpd_put(object, card->function));
    dmi_put_slot(object);
}
