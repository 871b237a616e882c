#include "card.h"
#include "devices.h"
#include "inventory.h"

#include <stdlib.h>
#include <string.h>

static struct kind configuration_kind = {OBJECT_KIND(hwi, HWIStndConfig)};
static struct kind link_kind = {OBJECT_KIND(hwi, HWIPcie)};

/* This host's codes. */
enum
{
    type_conventional = 1,
    type_express = 2,
    no_node = 0xFF
};

enum
{
    extended = 256, /* where the extended capabilities begin, of which one is the serial number */
    configuration_size = 4096
};

/* The configuration space of the device that is scanned. Bytes that can't be read are zero: without
 * CAP_SYS_ADMIN those behind the first 64, and so all capabilities. */
static unsigned char configuration[configuration_size];

/* The device/port type of a PCI Express device and 1, as an endpoint's is 0; 0 if it isn't one. */
static unsigned int find_port_type(void)
{
    const unsigned int pci_express = 0x10;
    const int most = (extended - 64) / 4; /* a faulty list may be circular */
    const bool has_capabilities = (configuration[0x06] & 0x10) != 0;
    unsigned int at = has_capabilities ? configuration[0x34] & 0xFCU : 0;
    for (int count = 0; at != 0 && count < most; ++count)
    {
        if (configuration[at] == pci_express)
        {
            return 1 + (configuration[at + 2] >> 4U);
        }
        at = configuration[at + 1] & 0xFCU;
    }
    return 0;
}

static void put_serial_number(struct object* object)
{
    const int serial_number = 0x0003;
    const unsigned int size = 12;
    const int most = (configuration_size - extended) / 4;
    unsigned int at = extended;
    for (int count = 0; at >= extended && at <= configuration_size - size && count < most; ++count)
    {
        const unsigned char* bytes = configuration + at;
        if ((bytes[0] | bytes[1] << 8) == serial_number)
        {
            object_put_format(object, "PCISerialNumber", "%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x",
                              bytes[11], bytes[10], bytes[9], bytes[8], bytes[7], bytes[6],
                              bytes[5], bytes[4]);
            return;
        }
        at = (bytes[2] >> 4U | (unsigned int)bytes[3] << 4U) & 0xFFCU;
    }
}

/* The slot's address is the device's without the function. */
static void put_slot(void* data, const char* path)
{
    struct object* object = data;
    const char* device = sysfs_name(object->device);
    char address[sysfs_text_size];
    if (sysfs_text(path, "address", address) && strncmp(device, address, strlen(address)) == 0 &&
        device[strlen(address)] == '.')
    {
        object_put_string(object, "SlotString", sysfs_name(path));
    }
}

static void scan_configuration(const char* device, bool is_express)
{
    static const struct row rows[] = {{"DataBusWidth", "current_link_width", row_plain},
                                      {0}}; /* in lanes */
    struct pci_location location;
    uint64_t number = 0;
    const char* address = sysfs_name(device);
    struct object* object = object_due(&configuration_kind, address, device);
    if (object == NULL)
    {
        return;
    }
    object_put_format(object, "FQDD", "PCI.%s", address);
    object_put_format(object, "FriendlyFQDD", "PCI device %s", address);
    if (pci_location_parse(address, &location))
    {
        object_put_number(object, "SegmentNum", location.segment);
        object_put_number(object, "BusNum", location.bus);
        object_put_number(object, "DeviceNum", location.device);
        object_put_number(object, "FunctionNum", location.function);
    }
    dmi_put_slot(object);
    card_put_identity(object, device);
    sysfs_put(object, device, rows);
    object_put_number(object, "cpu_affinity",
                      sysfs_number(device, "numa_node", 10, &number) ? number : no_node);
    object_put_number(object, "DeviceType", is_express ? type_express : type_conventional);
    if (sysfs_number(device, "class", 10, &number))
    {
        object_put_number(object, "classCode", number >> 16 & 0xFF);
        object_put_number(object, "Subclass", number >> 8 & 0xFF);
        object_put_number(object, "progIF", number & 0xFF);
    }
    object_put_number(object, "PCIheaderType", configuration[0x0E]);
    sysfs_each(sysfs_root, "bus/pci/slots", put_slot, object);
    object_complete(object);
}

/* GT/s as MT/s: 2.5 is 2500. 0 if the file doesn't begin with such a number. */
static uint32_t transfer_rate(const char* device, const char* file)
{
    char text[sysfs_text_size];
    const double rate = sysfs_text(device, file, text) ? strtod(text, NULL) * 1000 + 0.5 : 0;
    return rate > 0 && rate < UINT32_MAX ? (uint32_t)rate : 0;
}

static void scan_link(const char* device, unsigned int port_type)
{
    static const uint32_t rates[] = {2500, 5000, 8000, 16000, 32000, 64000};
    static const struct row rows[] = {{"MaxLinkWidth", "max_link_width", row_plain}, {0}};
    struct object* object = object_due(&link_kind, sysfs_name(device), device);
    if (object == NULL)
    {
        return;
    }
    const uint32_t fastest = transfer_rate(device, "max_link_speed");
    object_put_number(object, "CurrentLinkSpeed", transfer_rate(device, "current_link_speed"));
    object_put_number(object, "MaxLinkSpeed", fastest);
    for (size_t i = 0; i < sizeof rates / sizeof *rates; ++i)
    {
        if (rates[i] == fastest)
        {
            object_put_number(object, "SupportedLinkSpeed", i + 1); /* the generation */
        }
    }
    sysfs_put(object, device, rows);
    object_put_number(object, "PortType", port_type);
    put_serial_number(object);
    versions_put(object, device, false);
    hwdb_put(object, device, NULL);
    object_complete(object);
}

static void scan_device(void* data, const char* device)
{
    char text[sysfs_text_size];
    (void)data;
    memset(configuration, 0, sizeof configuration);
    /* All may read the file, and what is read is recorded. */
    (void)sysfs_bytes(device, "config", configuration,
                      sysfs_serials ? sizeof configuration : extended);
    const unsigned int port_type = find_port_type();
    /* The kernel has the file for PCI Express alone. */
    const bool is_express = port_type != 0 || sysfs_text(device, "max_link_speed", text);
    scan_configuration(device, is_express);
    if (is_express)
    {
        scan_link(device, port_type);
    }
}

void scan_pci(void)
{
    devices_each("pci", scan_device, NULL);
}
