#include "attribute.h"
#include "hwdb.h"
#include "inventory.h"
#include "pci_configuration.h"
#include "pci_interfaces.h"
#include "pci_location.h"
#include "sysfs.h"

#include <stdlib.h>
#include <string.h>

static const struct attribute attributes[] = {
    {"VendorID", "vendor", object_put_uint16, 10},
    {"SubVendorID", "subsystem_vendor", object_put_uint16, 10},
    {"SubDeviceID", "subsystem_device", object_put_uint16, 10},
    {"cpu_affinity", "numa_node", object_put_byte, 10},
    {"DataBusWidth", "current_link_width", object_put_byte, 10}, /* in lanes */
};

struct pci
{
    GANTRY_cpp_context* context;
    char slots[sysfs_path_size]; /* bus/pci/slots */
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

static void publish_configuration(const struct pci* pci, const char* device, const char* address,
                                  const struct pci_configuration* configuration)
{
    static const struct hwdb_members names = {"Manufacturer", "ProductName", "Description"};
    struct pci_location location;
    struct object object;
    uint64_t code = 0;
    if (!object_publish(&object, pci->context,
                        GANTRY_instantiate__com_orvane_velmar_hwi_HWIStndConfig,
                        "com.orvane.velmar.hwi.HWIStndConfig", address))
    {
        return;
    }
    object_put_format(&object, "FQDD", "PCI.%s", address);
    object_put_format(&object, "FriendlyFQDD", "PCI device %s", address);
    if (pci_location_parse(address, &location))
    {
        object_put_uint32(&object, "SegmentNum", location.segment);
        object_put_uint32(&object, "BusNum", location.bus);
        object_put_uint32(&object, "DeviceNum", location.device);
        object_put_uint32(&object, "FunctionNum", location.function);
    }
    attributes_read(&object, device, attributes, sizeof attributes / sizeof *attributes);
    if (sysfs_number(device, "class", 10, &code))
    {
        object_put_byte(&object, "classCode", code >> 16 & 0xFF);
        object_put_byte(&object, "Subclass", code >> 8 & 0xFF);
        object_put_byte(&object, "progIF", code & 0xFF);
    }
    object_put_byte(&object, "PCIheaderType", pci_header_type(configuration));
    hwdb_put_device(&object, device, names);
    sysfs_each(pci->slots, put_slot, &(struct slot_search){&object, address});
}

/* GT/s as MT/s: 2.5 is 2500. 0 if the file doesn't begin with such a number. */
static uint32_t transfer_rate(const char* device, const char* file)
{
    char text[sysfs_text_size];
    const double rate = sysfs_text(device, file, text) ? strtod(text, NULL) * 1000 + 0.5 : 0;
    return rate > 0 && rate < UINT32_MAX ? (uint32_t)rate : 0;
}

static void publish_link(const struct pci* pci, const char* device, const char* address,
                         const struct pci_configuration* configuration)
{
    static const uint32_t rates[] = {2500, 5000, 8000, 16000, 32000, 64000};
    static const struct hwdb_members names = {"manufacturer", "productName", "description"};
    struct object object;
    uint64_t lanes = 0;
    unsigned int type = 0;
    char serial[pci_serial_size];
    if (!object_publish(&object, pci->context, GANTRY_instantiate__com_orvane_velmar_hwi_HWIPcie,
                        "com.orvane.velmar.hwi.HWIPcie", address))
    {
        return;
    }
    const struct ethtool_drvinfo driver = pci_ask_driver(device);
    const uint32_t fastest = transfer_rate(device, "max_link_speed");
    object_put_uint32(&object, "CurrentLinkSpeed", transfer_rate(device, "current_link_speed"));
    object_put_uint32(&object, "MaxLinkSpeed", fastest);
    for (size_t i = 0; i < sizeof rates / sizeof *rates; ++i)
    {
        if (rates[i] == fastest)
        {
            object_put_byte(&object, "SupportedLinkSpeed", i + 1); /* the generation */
        }
    }
    if (sysfs_number(device, "max_link_width", 10, &lanes))
    {
        object_put_byte(&object, "MaxLinkWidth", lanes);
    }
    if (pci_port_type(configuration, &type))
    {
        object_put_byte(&object, "PortType", type);
    }
    if (pci_serial_number(configuration, serial))
    {
        object_put_string(&object, "PCISerialNumber", serial);
    }
    object_put_string(&object, "FirmwareVersion", driver.fw_version);
    hwdb_put_device(&object, device, names);
}

static void publish_device(void* pci, const char* device, const char* address)
{
    struct pci_configuration configuration;
    pci_configuration_read(device, &configuration);
    publish_configuration(pci, device, address, &configuration);
    publish_link(pci, device, address, &configuration);
}

void publish_pci_devices(GANTRY_cpp_context* context, const char* sys)
{
    struct pci pci = {.context = context};
    char devices[sysfs_path_size];
    if (sysfs_join(devices, sys, "bus/pci/devices") && sysfs_join(pci.slots, sys, "bus/pci/slots"))
    {
        sysfs_each(devices, publish_device, &pci);
    }
}
