#include "attribute.h"
#include "card.h"
#include "devices.h"
#include "dmi_slot.h"
#include "firmware_versions.h"
#include "hwdb.h"
#include "inventory.h"
#include "pci_configuration.h"

#include <stdlib.h>
#include <string.h>

static struct kind configuration_kind = {OBJECT_KIND(hwi, HWIStndConfig)};
static struct kind link_kind = {OBJECT_KIND(hwi, HWIPcie)};

static const struct attribute attributes[] = {
    {"VendorID", "vendor", object_put_uint16, 10},
    {"SubVendorID", "subsystem_vendor", object_put_uint16, 10},
    {"SubDeviceID", "subsystem_device", object_put_uint16, 10},
    {"DataBusWidth", "current_link_width", object_put_byte, 10}, /* in lanes */
};

/* This host's codes. */
enum
{
    type_conventional = 1,
    type_express = 2,
    no_node = 0xFF
};

struct slot_search
{
    struct object* object;
    const char* device; /* the address of the device whose slot is looked for */
};

/* The slot's address is the device's without the function. */
static void put_slot(void* data, const char* path, const char* name)
{
    const struct slot_search* search = data;
    char address[sysfs_text_size];
    if (sysfs_text(path, "address", address) &&
        strncmp(search->device, address, strlen(address)) == 0 &&
        search->device[strlen(address)] == '.')
    {
        object_put_string(search->object, "SlotString", name);
    }
}

static void scan_configuration(const char* device, const char* address,
                               const struct pci_configuration* configuration, bool is_express)
{
    static const struct hwdb_members names = {"Manufacturer", "ProductName", "Description"};
    struct pci_location location;
    struct dmi_slot slot;
    char slots[sysfs_path_size];
    uint64_t number = 0;
    struct object* object = object_due(&configuration_kind, address, device);
    if (object == NULL)
    {
        return;
    }
    object_put_format(object, "FQDD", "PCI.%s", address);
    object_put_format(object, "FriendlyFQDD", "PCI device %s", address);
    if (pci_location_parse(address, &location))
    {
        object_put_uint32(object, "SegmentNum", location.segment);
        object_put_uint32(object, "BusNum", location.bus);
        object_put_uint32(object, "DeviceNum", location.device);
        object_put_uint32(object, "FunctionNum", location.function);
        if (dmi_slot_find(&slot, &location))
        {
            object_put_string(object, "SlotString", slot.name);
            object_put_byte(object, "SlotType", slot.type);
            object_put_byte(object, "SlotLength", slot.length);
        }
    }
    attributes_read(object, device, attributes, sizeof attributes / sizeof *attributes);
    object_put_byte(object, "cpu_affinity",
                    sysfs_number(device, "numa_node", 10, &number) ? number : no_node);
    object_put_byte(object, "DeviceType", is_express ? type_express : type_conventional);
    if (sysfs_number(device, "class", 10, &number))
    {
        object_put_byte(object, "classCode", number >> 16 & 0xFF);
        object_put_byte(object, "Subclass", number >> 8 & 0xFF);
        object_put_byte(object, "progIF", number & 0xFF);
    }
    object_put_byte(object, "PCIheaderType", pci_header_type(configuration));
    hwdb_put(object, device, NULL, names);
    if (sysfs_join(slots, sysfs_root, "bus/pci/slots"))
    {
        sysfs_each(slots, put_slot, &(struct slot_search){object, address});
    }
    object_complete(object);
}

/* GT/s as MT/s: 2.5 is 2500. 0 if the file doesn't begin with such a number. */
static uint32_t transfer_rate(const char* device, const char* file)
{
    char text[sysfs_text_size];
    const double rate = sysfs_text(device, file, text) ? strtod(text, NULL) * 1000 + 0.5 : 0;
    return rate > 0 && rate < UINT32_MAX ? (uint32_t)rate : 0;
}

static void scan_link(const char* device, const char* address,
                      const struct pci_configuration* configuration)
{
    static const uint32_t rates[] = {2500, 5000, 8000, 16000, 32000, 64000};
    static const struct hwdb_members names = {"manufacturer", "productName", "description"};
    uint64_t lanes = 0;
    unsigned int type = 0;
    char serial[pci_serial_size];
    struct firmware_versions versions;
    struct object* object = object_due(&link_kind, address, device);
    if (object == NULL)
    {
        return;
    }
    const uint32_t fastest = transfer_rate(device, "max_link_speed");
    object_put_uint32(object, "CurrentLinkSpeed", transfer_rate(device, "current_link_speed"));
    object_put_uint32(object, "MaxLinkSpeed", fastest);
    for (size_t i = 0; i < sizeof rates / sizeof *rates; ++i)
    {
        if (rates[i] == fastest)
        {
            object_put_byte(object, "SupportedLinkSpeed", i + 1); /* the generation */
        }
    }
    if (sysfs_number(device, "max_link_width", 10, &lanes))
    {
        object_put_byte(object, "MaxLinkWidth", lanes);
    }
    if (pci_port_type(configuration, &type))
    {
        object_put_byte(object, "PortType", type + 1); /* 0 is an endpoint on the bus of the device,
                                                          and unknown here */
    }
    if (sysfs_serials && pci_serial_number(configuration, serial))
    {
        object_put_string(object, "PCISerialNumber", serial);
    }
    firmware_versions_read(&versions, device);
    object_put_string(object, "FirmwareVersion", versions.firmware);
    hwdb_put(object, device, NULL, names);
    object_complete(object);
}

static void scan_device(void* data, const char* device, const char* address)
{
    struct pci_configuration configuration;
    char text[sysfs_text_size];
    unsigned int type = 0;
    (void)data;
    pci_configuration_read(device, &configuration);
    /* The kernel has the file for PCI Express alone. */
    const bool is_express =
        pci_port_type(&configuration, &type) || sysfs_text(device, "max_link_speed", text);
    scan_configuration(device, address, &configuration, is_express);
    if (is_express)
    {
        scan_link(device, address, &configuration);
    }
}

void scan_pci(void)
{
    devices_each("pci", scan_device, NULL);
}
