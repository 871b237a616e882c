#include "attribute.h"
#include "devices.h"
#include "hwdb.h"
#include "inventory.h"
#include "sysfs.h"

#include <stdio.h>
#include <string.h>

static const struct attribute attributes[] = {
    {"Manufacturer", "manufacturer", NULL, 0},
    {"ProductName", "product", NULL, 0},
    {"SerialNumber", "serial", NULL, 0},
    {"MaxPower", "bMaxPower", NULL, 0},
    {"VendorID", "idVendor", object_put_uint16, 16},
    {"ProductID", "idProduct", object_put_uint16, 16},
    {"DeviceVersion", "bcdDevice", object_put_uint16, 16},
    {"DeviceClass", "bDeviceClass", object_put_byte, 16},
    {"DeviceSubClass", "bDeviceSubClass", object_put_byte, 16},
    {"DeviceProtocol", "bDeviceProtocol", object_put_byte, 16},
};

/* The version as a binary coded decimal, from the file's text: " 3.20" is 0x0320. */
static bool coded_version(const char* device, uint64_t* version)
{
    char spelling[sysfs_text_size];
    if (!sysfs_text(device, "version", spelling) ||
        spelling[strspn(spelling, " .0123456789")] != '\0')
    {
        return false;
    }
    *version = 0;
    for (const char* letter = spelling; *letter != '\0'; ++letter)
    {
        if (*letter >= '0')
        {
            *version = *version << 4 | (uint64_t)(*letter - '0');
        }
    }
    return true;
}

static struct kind usb_kind = {OBJECT_KIND(system, USB)};

static void scan_device(void* data, const char* device, const char* name)
{
    static const struct hwdb_members names = {.vendor = "Manufacturer", .product = "ProductName"};
    char modalias[sizeof "usb:v0000p0000"];
    uint64_t version = 0;
    uint64_t vendor = 0;
    uint64_t product = 0;
    (void)data;
    /* A device's interfaces are listed too: 1-2:1.0 is one of 1-2. */
    struct object* object = strchr(name, ':') == NULL ? object_due(&usb_kind, name, device) : NULL;
    if (object == NULL)
    {
        return;
    }
    object_put_format(object, "Key", "USB.%s", name);
    object_put_format(object, "fqdd", "USB.%s", name);
    object_put_format(object, "FriendlyFQDD", "USB device %s", name);
    object_put_byte(object, "Presence", switch_on);
    attributes_read(object, device, attributes, sizeof attributes / sizeof *attributes);
    /* Of a USB device, only the interfaces have a file with their modalias. */
    if (sysfs_number(device, "idVendor", 16, &vendor) &&
        sysfs_number(device, "idProduct", 16, &product))
    {
        snprintf(modalias, sizeof modalias, "usb:v%04Xp%04X", (unsigned int)vendor & 0xFFFF,
                 (unsigned int)product & 0xFFFF);
        hwdb_put(object, device, modalias, names);
    }
    if (coded_version(device, &version))
    {
        object_put_uint16(object, "USBVersion", version);
    }
    object_complete(object);
}

void scan_usb(void)
{
    devices_each("usb", scan_device, NULL);
}
