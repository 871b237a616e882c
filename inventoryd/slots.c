#define _POSIX_C_SOURCE 200809L /* open_memstream */

#include "slots.h"

#include "attribute.h"
#include "dump.h"
#include "hwdb.h"
#include "pci_interfaces.h"
#include "pci_location.h"
#include "sysfs.h"

#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <time.h>

static const uint64_t between_readings = 1000000; /* in microseconds */

static const struct attribute attributes[] = {
    {"VendorID", "vendor", NULL, 0},
    {"DeviceID", "device", NULL, 0},
    {"SubVendorID", "subsystem_vendor", NULL, 0},
    {"SubDeviceID", "subsystem_device", NULL, 0},
    {"Revision", "revision", NULL, 0},
    {"CPUAffinity", "numa_node", object_put_uint16, 10},
    {"BSInfo_VendorID", "vendor", object_put_uint16, 10},
    {"BSInfo_DeviceID", "device", object_put_uint16, 10},
    {"BSInfo_SubVendorID", "subsystem_vendor", object_put_uint16, 10},
    {"BSInfo_SubDeviceID", "subsystem_device", object_put_uint16, 10},
};

static sd_event* loop;
static const char* dumps;
static char devices[sysfs_path_size];

/* The dump that is running. */
static struct
{
    GANTRY_call* call; /* null if there is none */
    sd_event_source* timer;
    char* address; /* of the PCI device */
    FILE* stream;  /* writes `text` */
    char* text;
    size_t size;
} dump;

static void read_links(void)
{
    char device[sysfs_path_size];
    if (sysfs_join(device, devices, dump.address))
    {
        fprintf(dump.stream, "at %ld\n", (long)time(NULL));
        dump_links(dump.stream, device);
    }
}

void slots_free(void)
{
    sd_event_source_disable_unref(dump.timer);
    if (dump.stream != NULL)
    {
        fclose(dump.stream);
    }
    free(dump.text);
    free(dump.address);
    memset(&dump, 0, sizeof dump);
}

static void refuse(int error)
{
    GANTRY_call_refuse(&dump.call, SD_BUS_ERROR_FAILED, strerror(error), NULL);
    slots_free();
}

/* The event loop calls this. */
static int on_second_reading(sd_event_source* timer, uint64_t now, void* data)
{
    char path[sysfs_path_size];
    (void)timer, (void)now, (void)data;
    read_links();
    int error = fclose(dump.stream) == 0 ? 0 : errno;
    dump.stream = NULL;
    if (error == 0)
    {
        error = sysfs_join(path, dumps, dump.address) ? dump_save(path, dump.text, dump.size)
                                                      : ENAMETOOLONG;
    }
    if (error != 0)
    {
        refuse(error);
        return 0;
    }
    GANTRY_reply__com_orvane_velmar_system_NicSlot__TriggerAdapterCoreDump(&dump.call, 0, path,
                                                                           NULL);
    slots_free();
    return 0;
}

/* Returns 0 or an errno. */
static int start(GANTRY_instance* slot, const char* sender, uid_t uid, pid_t pid)
{
    GANTRY_property_get_string(slot, "Key", &dump.address, NULL);
    dump.stream = open_memstream(&dump.text, &dump.size);
    if (dump.address == NULL || dump.stream == NULL)
    {
        return ENOMEM;
    }
    fprintf(dump.stream, "a dump of %s for %s, user %lu, process %ld\n", dump.address, sender,
            (unsigned long)uid, (long)pid);
    if (fflush(dump.stream) != 0)
    {
        return errno; /* `text` is made by a successful flush */
    }
    fprintf(stderr, SD_NOTICE "%s", dump.text);
    read_links();
    const int result = sd_event_add_time_relative(loop, &dump.timer, CLOCK_MONOTONIC,
                                                  between_readings, 0, on_second_reading, NULL);
    return result < 0 ? -result : 0;
}

/* A dump goes to the host's own directory. The arguments, with which a client says where it wants
 * to have it, are ignored. */
static void trigger(GANTRY_instance* slot, char* job, unsigned char type, char* share, char* folder,
                    char* file, char* user, char* password, unsigned char flags, int* status,
                    char** message)
{
    const char* sender = NULL;
    uid_t uid = 0;
    pid_t pid = 0;
    int error = 0;
    (void)job, (void)type, (void)share, (void)folder, (void)file, (void)user, (void)password;
    (void)flags, (void)message;
    if (dump.call != NULL)
    {
        GANTRY_call_fail(slot, "com.orvane.velmar.inventory.Busy", "a dump is running", NULL);
        return;
    }
    if (dumps == NULL)
    {
        GANTRY_call_fail(slot, SD_BUS_ERROR_NOT_SUPPORTED, "there is no directory for dumps", NULL);
        return;
    }
    GANTRY_call_get_sender(slot, &sender);
    GANTRY_call_get_credentials(slot, &uid, &pid, &error);
    if (error != 0)
    {
        GANTRY_call_fail(slot, SD_BUS_ERROR_ACCESS_DENIED, "the caller is unknown", NULL);
        return;
    }
    GANTRY_call_defer(slot, &dump.call, status);
    if (dump.call == NULL)
    {
        return; /* the client gets the errno as status, or the library's error */
    }
    error = start(slot, sender, uid, pid);
    if (error != 0)
    {
        refuse(error);
    }
}

static const GANTRY_table__com_orvane_velmar_system_NicSlot callbacks = {
    .TriggerAdapterCoreDump = trigger,
};

static void create(GANTRY_cpp_context* context, const void* table, const char* path, void* data)
{
    (void)table;
    GANTRY_instantiate__com_orvane_velmar_system_NicSlot(context, &callbacks, path, data);
}

static void publish_slot(void* context, const char* device, const char* address)
{
    enum
    {
        network_controller = 0x02
    };
    static const struct hwdb_members names = {.vendor = "VendorName", .product = "ProductName"};
    struct pci_location location;
    struct object object;
    uint64_t code = 0;
    uint64_t lanes = 0;
    if (!sysfs_number(device, "class", 10, &code) || code >> 16 != network_controller ||
        !object_publish(&object, context, create, "com.orvane.velmar.system.NicSlot", address))
    {
        return;
    }
    object_put_string(&object, "Key", address);
    object_put_format(&object, "FQDD", "NIC.Slot.%s", address);
    object_put_format(&object, "FriendlyFQDD", "Network adapter %s", address);
    attributes_read(&object, device, attributes, sizeof attributes / sizeof *attributes);
    if (pci_location_parse(address, &location))
    {
        object_put_byte(&object, "BSInfo_Bus", location.bus);
        object_put_byte(&object, "BSInfo_Device", location.device);
        object_put_byte(&object, "BSInfo_Function", location.function);
    }
    if (sysfs_number(device, "current_link_width", 10, &lanes) && lanes > 0)
    {
        object_put_format(&object, "DataBusWidth", "x%" PRIu64, lanes);
    }
    hwdb_put_device(&object, device, names);
    const struct ethtool_drvinfo driver = pci_ask_driver(device);
    object_put_string(&object, "FamilyVersion", driver.fw_version);
    object_put_string(&object, "ControllerBIOSVersion", driver.erom_version);
    GANTRY_property_set_boolean(object.instance, "IsCoreDumpSupported", true, true, NULL);
    GANTRY_property_set_boolean(object.instance, "IsCoreDumpEnabled", dumps != NULL, true, NULL);
}

void publish_slots(GANTRY_cpp_context* context, sd_event* event, const char* sys,
                   const char* directory)
{
    loop = event;
    dumps = directory;
    if (sysfs_join(devices, sys, "bus/pci/devices"))
    {
        sysfs_each(devices, publish_slot, context);
    }
}
