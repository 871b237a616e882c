/*
 * Fibre Channel: a port is an fc_host of the function, and not of a virtual port. Drivers tell more
 * of it in files of the scsi_host of the same name, which are called otherwise by each driver.
 */
#include "adapter.h"
#include "attribute.h"
#include "inventory.h"
#include "nic.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static void find_port(void* data, const char* path, const char* name)
{
    (void)name;
    adapter_found(data, path, 1);
}

static void find_host(void* data, const char* path, const char* name)
{
    char hosts[sysfs_path_size];
    if (strncmp(name, "host", 4) == 0 && sysfs_join(hosts, path, "fc_host"))
    {
        sysfs_each(hosts, find_port, data);
    }
}

static void find_ports(struct adapter_scan* scan, const char* function)
{
    sysfs_each(function, find_host, scan);
}

/* The scsi_host's text is empty if it has none of the files. */
static bool read_scsi_host(const char* port, const char* file, const char* or_file,
                           char text[sysfs_text_size])
{
    char directory[sysfs_path_size];
    const char* name = strrchr(port, '/');
    const int length = (int)(name - port - (ptrdiff_t)strlen("/fc_host"));
    text[0] = '\0';
    return snprintf(directory, sizeof directory, "%.*s/scsi_host%s", length, port, name) <
               (int)sizeof directory &&
           (sysfs_text(directory, file, text) || sysfs_text(directory, or_file, text));
}

static void put_slot(struct object* object, const struct card* card, const char* port,
                     unsigned int ports)
{
    static const char* const files[][3] = {
        {"DeviceName", "model_name", "modelname"},
        {"ChipType", "isp_name", ""},
        {"FamilyVersion", "fw_version", "fwrev"},
        {"EFIVersion", "optrom_efi_version", ""},
    };
    static const struct attribute attributes[] = {{"FramePayloadSize", "maxframe_size", NULL, 0}};
    enum
    {
        scsi = 1 /* this host's code of a protocol */
    };
    char text[sysfs_text_size];
    (void)card;
    object_put_byte(object, "SupportedProtocols", scsi);
    object_put_byte(object, "PartitionCount", ports);
    if (ports == 0)
    {
        return;
    }
    for (size_t i = 0; i < sizeof files / sizeof *files; ++i)
    {
        if (read_scsi_host(port, files[i][1], files[i][2], text))
        {
            object_put_string(object, files[i][0], text);
        }
    }
    attributes_read(object, port, attributes, 1);
}

/* Words of four bytes. */
static void put_kilobytes(struct object* object, const char* member, uint64_t words)
{
    adapter_put_counter(object, member, words == UINT64_MAX ? words : words / 256);
}

/* The state's code is its place among the kernel's names of states. */
static void put_state(struct object* object)
{
    static const char* const states[] = {"",        "Not Present", "Online",      "Offline",
                                         "Blocked", "Bypassed",    "Diagnostics", "Linkdown",
                                         "Error",   "Loopback",    "Deleted",     "Marginal"};
    enum
    {
        unknown = 0,
        online = 2,
        count = sizeof states / sizeof *states
    };
    char text[sysfs_text_size] = "";
    size_t code = count - 1;
    (void)sysfs_text(object->device, "port_state", text);
    while (code > unknown && strcmp(text, states[code]) != 0)
    {
        --code;
    }
    object_put_byte(object, "PortStatus", code);
    object_put_byte(object, "LinkStatus",
                    code == unknown  ? unknown
                    : code == online ? adapter_link_up
                                     : adapter_link_down);
    const bool is_speed =
        sysfs_text(object->device, "speed", text) && strstr(text, " Gbit") != NULL;
    object_put_uint16(object, "PortSpeed", is_speed ? strtoul(text, NULL, 10) : 0);
}

static void put_counters(struct object* object)
{
    static const struct attribute counters[] = {
        {"FCRxTotalFrames", "statistics/rx_frames", adapter_put_counter, 10},
        {"FCTxTotalFrames", "statistics/tx_frames", adapter_put_counter, 10},
        {"FCRxKBCount", "statistics/rx_words", put_kilobytes, 10},
        {"FCTxKBCount", "statistics/tx_words", put_kilobytes, 10},
        {"FCLinkFailures", "statistics/link_failure_count", adapter_put_counter, 10},
        {"FCLossOfSignals", "statistics/loss_of_signal_count", adapter_put_counter, 10},
        {"FCInvalidCRCs", "statistics/invalid_crc_count", adapter_put_counter, 10},
    };
    uint64_t seconds = 0;
    const bool is_new = object->is_new;
    put_state(object);
    attributes_read(object, object->device, counters, sizeof counters / sizeof *counters);
    nic_put_statistics_times(object);
    if (is_new && sysfs_number(object->device, "statistics/seconds_since_last_reset", 10, &seconds))
    {
        object_put_uint32(object, "StatisticsStartTime", (uint64_t)time(NULL) - seconds);
    }
}

static void put_port(struct object* object, const struct card* card)
{
    static const struct attribute attributes[] = {
        {"PortDownTimeOut", "dev_loss_tmo", object_put_uint32, 10}};
    char text[sysfs_text_size];
    object_put_byte(object, "PortNumber", object->tag);
    attributes_read(object, object->device, attributes, 1);
    if (sysfs_link_name(card->function, "driver", text))
    {
        object_put_byte(object, "OSDriverState", adapter_driver_bound);
    }
    /* The version of the code that starts the machine from the adapter. */
    bool is_known =
        read_scsi_host(object->device, "optrom_bios_version", "option_rom_version", text);
    object_put_byte(object, "FCBootSupport",
                    object_switch(is_known, strpbrk(text, "123456789") != NULL));
    is_known = read_scsi_host(object->device, "thermal_temp", "", text);
    object_put_byte(object, "OnChipThermalSensor",
                    object_switch(is_known, strpbrk(text, "0123456789") != NULL));
    put_counters(object);
}

/* A name that isn't the one of the adapter's maker is virtual. */
static void put_partition(struct object* object, const struct card* card)
{
    char text[sysfs_text_size] = "";
    char permanent[sysfs_text_size];
    if (sysfs_text(object->device, "node_name", text))
    {
        object_put_string(object, "WWN", text);
    }
    (void)sysfs_text(object->device, "port_name", text);
    const bool is_virtual = sysfs_text(object->device, "permanent_port_name", permanent) &&
                            strcmp(text, permanent) != 0;
    object_put_string(object, "WWPN", is_virtual ? permanent : text);
    object_put_string(object, "VirtualWWPN", is_virtual ? text : "");
    if (read_scsi_host(object->device, "max_xri", "", text))
    {
        object_put_uint16(object, "FCMaxNumberExchanges", strtoul(text, NULL, 10));
    }
    if (read_scsi_host(object->device, "can_queue", "", text))
    {
        object_put_uint16(object, "FCMaxNumberOutStandingCommands", strtoul(text, NULL, 10));
    }
    if (sysfs_link_name(card->function, "driver", text))
    {
        object_put_string(object, "OSDriver", text);
    }
}

static void create_slot(GANTRY_cpp_context* context, const void* table, const char* path,
                        void* data)
{
    (void)table; /* no dump is made, so its method has no handler */
    GANTRY_instantiate__com_orvane_velmar_system_FCSlot(context, NULL, path, data);
}

void scan_fc(void)
{
    static struct adapter_family family = {
        "FC",
        "Fibre Channel",
        0x0C04,
        "PartitionsCount",
        find_ports,
        put_slot,
        put_port,
        put_partition,
        {.interface = "com.orvane.velmar.system.FCSlot", .create = create_slot},
        {OBJECT_KIND(system, FCController)},
        {OBJECT_KIND(system, FCPort), .put_counters = put_counters},
        {OBJECT_KIND(system, FCPartition)},
    };
    adapter_scan(&family);
}
