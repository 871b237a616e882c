#include "attribute.h"
#include "inventory.h"
#include "pci_location.h"
#include "sysfs.h"

#include <stdlib.h>
#include <systemd/sd-hwdb.h>

struct pci
{
    GANTRY_cpp_context* context;
    sd_hwdb* names; /* the system's hardware database, null where there is none */
};

static const struct attribute attributes[] = {
    {"VendorID", "vendor", object_put_uint16, 10},
    {"SubVendorID", "subsystem_vendor", object_put_uint16, 10},
    {"SubDeviceID", "subsystem_device", object_put_uint16, 10},
    {"cpu_affinity", "numa_node", object_put_byte, 10},
};

/* The database's value of `key` for the device, looked up by its modalias; or null. */
static const char* look_up(const struct pci* pci, const char* device, const char* key)
{
    char modalias[sysfs_text_size];
    const char* value = NULL;
    if (pci->names == NULL || !sysfs_text(device, "modalias", modalias) ||
        sd_hwdb_get(pci->names, modalias, key, &value) < 0)
    {
        return NULL;
    }
    return value;
}

static void publish_configuration(const struct pci* pci, const char* device, const char* address)
{
    enum
    {
        header_type = 0x0E
    };
    unsigned char configuration[header_type + 1];
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
    if (sysfs_bytes(device, "config", configuration, sizeof configuration) > header_type)
    {
        object_put_byte(&object, "PCIheaderType", configuration[header_type]);
    }
    object_put_string(&object, "Manufacturer", look_up(pci, device, "ID_VENDOR_FROM_DATABASE"));
    object_put_string(&object, "ProductName", look_up(pci, device, "ID_MODEL_FROM_DATABASE"));
    object_put_string(&object, "Description",
                      look_up(pci, device, "ID_PCI_SUBCLASS_FROM_DATABASE"));
}

/* GT/s as MT/s: 2.5 is 2500. 0 if the file doesn't begin with such a number. */
static uint32_t transfer_rate(const char* device, const char* file)
{
    char text[sysfs_text_size];
    const double rate = sysfs_text(device, file, text) ? strtod(text, NULL) * 1000 + 0.5 : 0;
    return rate > 0 && rate < UINT32_MAX ? (uint32_t)rate : 0;
}

/* The device/port type of the PCI Express capability, if the device has one. */
static bool port_type(const char* device, unsigned int* type)
{
    enum
    {
        status = 0x06,
        has_capabilities = 0x10,
        first_capability = 0x34,
        pci_express = 0x10,
        size = 256,
        header = 64,
        most_capabilities = (size - header) / 4 /* a faulty list may be circular */
    };
    /* Bytes that can't be read stay zero, which means no capability. */
    unsigned char configuration[size] = {0};
    if (sysfs_bytes(device, "config", configuration, size) == 0 ||
        (configuration[status] & has_capabilities) == 0)
    {
        return false;
    }
    unsigned int at = configuration[first_capability] & 0xFCU;
    for (int count = 0; at != 0 && count < most_capabilities; ++count)
    {
        if (configuration[at] == pci_express)
        {
            *type = configuration[at + 2] >> 4;
            return true;
        }
        at = configuration[at + 1] & 0xFCU;
    }
    return false;
}

static void publish_link(const struct pci* pci, const char* device, const char* address)
{
    static const uint32_t rates[] = {2500, 5000, 8000, 16000, 32000, 64000};
    struct object object;
    uint64_t lanes = 0;
    unsigned int type = 0;
    if (!object_publish(&object, pci->context, GANTRY_instantiate__com_orvane_velmar_hwi_HWIPcie,
                        "com.orvane.velmar.hwi.HWIPcie", address))
    {
        return;
    }
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
    if (port_type(device, &type))
    {
        object_put_byte(&object, "PortType", type);
    }
    object_put_string(&object, "manufacturer", look_up(pci, device, "ID_VENDOR_FROM_DATABASE"));
    object_put_string(&object, "productName", look_up(pci, device, "ID_MODEL_FROM_DATABASE"));
}

static void publish_device(void* data, const char* device, const char* address)
{
    publish_configuration(data, device, address);
    publish_link(data, device, address);
}

void publish_pci_devices(GANTRY_cpp_context* context, const char* sys)
{
    struct pci pci = {context, NULL};
    char devices[sysfs_path_size];
    if (!sysfs_join(devices, sys, "bus/pci/devices"))
    {
        return;
    }
    sd_hwdb_new(&pci.names);
    sysfs_each(devices, publish_device, &pci);
    sd_hwdb_unref(pci.names);
}
