/*
 * Fibre Channel: a port is a SCSI host with an fc_host. Drivers tell more of it in files of the
 * scsi_host, each under names of its own. Hosts of virtual ports are none.
 */
#include "adapter.h"
#include "attribute.h"
#include "devices.h"
#include "inventory.h"
#include "nic.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* The directory of the host in a class, or one below it. */
static bool find_class(char path[sysfs_path_size], const char* host, const char* class,
                       const char* below)
{
    return snprintf(path, sysfs_path_size, "%s/%s/%s%s", host, class, devices_name(host), below) <
           sysfs_path_size;
}

static void read_class(struct object* object, const char* class, const char* host,
                       const struct attribute* attributes, size_t count)
{
    char path[sysfs_path_size];
    if (find_class(path, host, class, ""))
    {
        attributes_read(object, path, attributes, count);
    }
}

static void find_host(void* data, const char* path, const char* name)
{
    if (strncmp(name, "host", 4) == 0 && sysfs_has_directory(path, "fc_host"))
    {
        adapter_found(data, path, 1);
    }
}

static void find_ports(struct adapter_scan* scan, const char* function)
{
    sysfs_each(function, find_host, scan);
}

static void put_slot(struct object* object, const struct card* card, const char* port,
                     unsigned int ports)
{
    static const struct attribute of_scsi_host[] = {
        {"DeviceName", "model_name", NULL, 0}, {"DeviceName", "modelname", NULL, 0},
        {"ChipType", "isp_name", NULL, 0},     {"FamilyVersion", "fw_version", NULL, 0},
        {"FamilyVersion", "fwrev", NULL, 0},   {"EFIVersion", "optrom_efi_version", NULL, 0},
    };
    static const struct attribute of_fc_host[] = {{"FramePayloadSize", "maxframe_size", NULL, 0}};
    enum
    {
        scsi = 1 /* this host's code of a protocol */
    };
    (void)card;
    object_put_byte(object, "SupportedProtocols", scsi);
    object_put_byte(object, "PartitionCount", ports);
    if (port[0] != '\0')
    {
        read_class(object, "scsi_host", port, of_scsi_host,
                   sizeof of_scsi_host / sizeof *of_scsi_host);
        read_class(object, "fc_host", port, of_fc_host, 1);
    }
}

/* Words of four bytes. */
static void put_kilobytes(struct object* object, const char* member, uint64_t words)
{
    adapter_put_counter(object, member, words == UINT64_MAX ? words : words / 256);
}

/* The state's code is its place among the kernel's names of states. */
static void put_state(struct object* object, const char* fc_host)
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
    (void)sysfs_text(fc_host, "port_state", text);
    while (code > unknown && strcmp(text, states[code]) != 0)
    {
        --code;
    }
    object_put_byte(object, "PortStatus", code);
    object_put_byte(object, "LinkStatus",
                    code == unknown  ? unknown
                    : code == online ? adapter_link_up
                                     : adapter_link_down);
    const bool is_speed = sysfs_text(fc_host, "speed", text) && strstr(text, " Gbit") != NULL;
    object_put_uint16(object, "PortSpeed", is_speed ? strtoul(text, NULL, 10) : 0);
}

static void put_counters(struct object* object)
{
    static const struct attribute counters[] = {
        {"FCRxTotalFrames", "rx_frames", adapter_put_counter, 10},
        {"FCTxTotalFrames", "tx_frames", adapter_put_counter, 10},
        {"FCRxKBCount", "rx_words", put_kilobytes, 10},
        {"FCTxKBCount", "tx_words", put_kilobytes, 10},
        {"FCLinkFailures", "link_failure_count", adapter_put_counter, 10},
        {"FCLossOfSignals", "loss_of_signal_count", adapter_put_counter, 10},
        {"FCInvalidCRCs", "invalid_crc_count", adapter_put_counter, 10},
    };
    char path[sysfs_path_size];
    uint64_t seconds = 0;
    const bool is_new = object->is_new;
    if (find_class(path, object->device, "fc_host", ""))
    {
        put_state(object, path);
    }
    if (find_class(path, object->device, "fc_host", "/statistics"))
    {
        attributes_read(object, path, counters, sizeof counters / sizeof *counters);
        nic_put_statistics_times(object);
        if (is_new && sysfs_number(path, "seconds_since_last_reset", 10, &seconds))
        {
            object_put_uint32(object, "StatisticsStartTime", (uint64_t)time(NULL) - seconds);
        }
    }
}

static void put_port(struct object* object, const struct card* card)
{
    static const struct attribute timeouts[] = {
        {"PortDownTimeOut", "dev_loss_tmo", object_put_uint32, 10}};
    char directory[sysfs_path_size];
    char text[sysfs_text_size];
    object_put_byte(object, "PortNumber", object->tag);
    read_class(object, "fc_host", object->device, timeouts, 1);
    if (sysfs_link_name(card->function, "driver", text))
    {
        object_put_byte(object, "OSDriverState", adapter_driver_bound);
    }
    if (find_class(directory, object->device, "scsi_host", ""))
    {
        /* The version of the code that starts the machine from the adapter. */
        const bool is_known = sysfs_text(directory, "optrom_bios_version", text) ||
                              sysfs_text(directory, "option_rom_version", text);
        object_put_byte(object, "FCBootSupport",
                        object_switch(is_known, text[strspn(text, "0. ")] != '\0'));
        const bool has_file = sysfs_text(directory, "thermal_temp", text);
        object_put_byte(object, "OnChipThermalSensor",
                        object_switch(has_file, text[0] >= '0' && text[0] <= '9'));
    }
    put_counters(object);
}

/* A name that isn't the one of the adapter's maker is virtual. */
static void put_partition(struct object* object, const struct card* card)
{
    static const struct attribute of_fc_host[] = {{"WWN", "node_name", NULL, 0}};
    static const struct attribute of_scsi_host[] = {
        {"FCMaxNumberExchanges", "max_xri", object_put_uint16, 10},
        {"FCMaxNumberOutStandingCommands", "can_queue", object_put_uint16, 10},
    };
    char directory[sysfs_path_size];
    char text[sysfs_text_size] = "";
    char permanent[sysfs_text_size];
    read_class(object, "fc_host", object->device, of_fc_host, 1);
    read_class(object, "scsi_host", object->device, of_scsi_host, 2);
    if (find_class(directory, object->device, "fc_host", ""))
    {
        (void)sysfs_text(directory, "port_name", text);
        const bool is_virtual =
            sysfs_text(directory, "permanent_port_name", permanent) && strcmp(text, permanent) != 0;
        object_put_string(object, "WWPN", is_virtual ? permanent : text);
        object_put_string(object, "VirtualWWPN", is_virtual ? text : "");
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
        {.interface = "com.orvane.velmar.system.FCController",
         .create = GANTRY_instantiate__com_orvane_velmar_system_FCController},
        {.interface = "com.orvane.velmar.system.FCPort",
         .create = GANTRY_instantiate__com_orvane_velmar_system_FCPort,
         .put_counters = put_counters},
        {.interface = "com.orvane.velmar.system.FCPartition",
         .create = GANTRY_instantiate__com_orvane_velmar_system_FCPartition},
    };
    adapter_scan(&family);
}
