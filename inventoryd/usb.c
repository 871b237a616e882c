#include "card.h"
#include "devices.h"
#include "inventory.h"

#include <stdio.h>
#include <string.h>

/* The kernel's text has a binary coded decimal in two halves: " 3.20" is 0x0320. */
static void put_version(struct object* object)
{
    char text[sysfs_text_size];
    unsigned int major = 0;
    unsigned int minor = 0;
    char behind = '\0';
    if (sysfs_text(object->device, "version", text) &&
        sscanf(text, "%2x.%2x%c", &major, &minor, &behind) == 2)
    {
        object_put_number(object, "USBVersion", major << 8U | minor);
    }
}

static void scan_device(void* data, const char* device)
{
    static struct kind kind = {OBJECT_KIND(system, USB)};
    static const struct row rows[] = {
        {"Manufacturer", "manufacturer", row_plain},
        {"ProductName", "product", row_plain},
        {"SerialNumber", "serial", row_plain},
        {"MaxPower", "bMaxPower", row_plain},
        {"VendorID", "idVendor", row_hexadecimal},
        {"ProductID", "idProduct", row_hexadecimal},
        {"DeviceVersion", "bcdDevice", row_hexadecimal},
        {"DeviceClass", "bDeviceClass", row_hexadecimal},
        {"DeviceSubClass", "bDeviceSubClass", row_hexadecimal},
        {"DeviceProtocol", "bDeviceProtocol", row_hexadecimal},
        {0},
    };
    const char* name = sysfs_name(device);
    char modalias[sizeof "usb:v0000p0000"];
    uint64_t vendor = 0;
    uint64_t product = 0;
    (void)data;
    /* A device's interfaces are listed too: 1-2:1.0 is one of 1-2. */
    struct object* object = strchr(name, ':') == NULL ? object_due(&kind, name, device) : NULL;
    if (object == NULL)
    {
        return;
    }
    object_put_format(object, "Key", "USB.%s", name);
    object_put_format(object, "fqdd", "USB.%s", name);
    object_put_format(object, "FriendlyFQDD", "USB device %s", name);
    object_put_switch(object, "Presence", true, true);
    sysfs_put(object, device, rows);
    /* Of a USB device, only the interfaces have a file with their modalias. */
    if (sysfs_number(device, "idVendor", 16, &vendor) &&
        sysfs_number(device, "idProduct", 16, &product))
    {
        snprintf(modalias, sizeof modalias, "usb:v%04Xp%04X", (unsigned int)vendor & 0xFFFF,
                 (unsigned int)product & 0xFFFF);
        hwdb_put(object, device, modalias);
    }
    put_version(object);
    object_complete(object);
}

void scan_usb(void)
{
    devices_each("usb", scan_device, NULL);
}
