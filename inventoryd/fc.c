/*
 * Fibre Channel: a port is an fc_host of the function, and not of a virtual port. Drivers tell more
 * of it in files of the scsi_host of the same name, which are called otherwise by each driver.
 */
#include "adapter.h"
#include "inventory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static void find_port(void* data, const char* path)
{
    struct adapter_port port = {.card = *(const struct card*)data, .device = (char*)path};
    adapter_add(&port);
}

static void find_ports(void* data, const char* path)
{
    if (strncmp(sysfs_name(path), "host", strlen("host")) == 0)
    {
        sysfs_each(path, "fc_host", find_port, data);
    }
}

/* The directory of the port's scsi_host; the files are looked for beside it if there is no room. */
static void find_scsi_host(char directory[sysfs_path_size], const char* port)
{
    char host[sysfs_path_size];
    const char* name = sysfs_name(port);
    const int length = (int)(name - port - (ptrdiff_t)strlen("/fc_host/"));
    snprintf(host, sizeof host, "%.*s/scsi_host", length, port);
    (void)sysfs_join(directory, host, name);
}

static void put_slot(struct object* object, const struct adapter_port* first)
{
    static const struct row of_host[] = {
        {"DeviceName", "modelname", row_plain},
        {"DeviceName", "model_name", row_plain},
        {"ChipType", "isp_name", row_plain},
        {"FamilyVersion", "fwrev", row_plain},
        {"FamilyVersion", "fw_version", row_plain},
        {"EFIVersion", "optrom_efi_version", row_plain},
        {0},
    };
    static const struct row of_port[] = {{"FramePayloadSize", "maxframe_size", row_plain}, {0}};
    const unsigned int scsi = 1; /* this host's code of a protocol */
    char host[sysfs_path_size];
    object_put_number(object, "SupportedProtocols", scsi);
    if (first->device[0] != '\0')
    {
        find_scsi_host(host, first->device);
        sysfs_put(object, host, of_host);
        sysfs_put(object, first->device, of_port);
    }
}

/* The state's code is its place among the kernel's names of states. */
static void put_state(struct object* object)
{
    static const char* const states[] = {"",        "Not Present", "Online",      "Offline",
                                         "Blocked", "Bypassed",    "Diagnostics", "Linkdown",
                                         "Error",   "Loopback",    "Deleted",     "Marginal"};
    const size_t online = 2;
    char text[sysfs_text_size];
    size_t code = sizeof states / sizeof *states - 1;
    (void)sysfs_text(object->device, "port_state", text);
    while (code > 0 && strcmp(text, states[code]) != 0)
    {
        --code;
    }
    object_put_number(object, "PortStatus", code);
    adapter_put_link(object, code > 0, code == online);
    const bool is_speed =
        sysfs_text(object->device, "speed", text) && strstr(text, " Gbit") != NULL;
    object_put_number(object, "PortSpeed", is_speed ? strtoul(text, NULL, 10) : 0);
}

static void put_counters(struct object* object)
{
    static const struct row rows[] = {
        {"FCRxTotalFrames", "statistics/rx_frames", row_counter},
        {"FCTxTotalFrames", "statistics/tx_frames", row_counter},
        {"FCRxKBCount", "statistics/rx_words", row_kilobytes},
        {"FCTxKBCount", "statistics/tx_words", row_kilobytes},
        {"FCLinkFailures", "statistics/link_failure_count", row_counter},
        {"FCLossOfSignals", "statistics/loss_of_signal_count", row_counter},
        {"FCInvalidCRCs", "statistics/invalid_crc_count", row_counter},
        {0},
    };
    const uint64_t now = (uint64_t)time(NULL);
    uint64_t seconds = 0;
    put_state(object);
    sysfs_put(object, object->device, rows);
    object_put_statistics_times(object);
    if (object->is_new &&
        sysfs_number(object->device, "statistics/seconds_since_last_reset", 10, &seconds) &&
        seconds <= now) /* otherwise the driver doesn't count them */
    {
        object_put_number(object, "StatisticsStartTime", now - seconds);
    }
}

static void put_port(struct object* object, const struct adapter_port* port)
{
    static const struct row rows[] = {{"PortDownTimeOut", "dev_loss_tmo", row_plain}, {0}};
    char host[sysfs_path_size];
    char text[sysfs_text_size];
    find_scsi_host(host, port->device);
    sysfs_put(object, port->device, rows);
    /* The version of the code that starts the machine from the adapter. */
    bool is_known = sysfs_text(host, "optrom_bios_version", text) ||
                    sysfs_text(host, "option_rom_version", text);
    object_put_switch(object, "FCBootSupport", is_known, text[strcspn(text, "123456789")] != '\0');
    is_known = sysfs_text(host, "thermal_temp", text);
    object_put_switch(object, "OnChipThermalSensor", is_known,
                      text[strcspn(text, "0123456789")] != '\0');
}

/* A name that isn't the one of the adapter's maker is virtual. */
static void put_partition(struct object* object, const struct adapter_port* partition)
{
    static const struct row of_port[] = {{"WWN", "node_name", row_plain}, {0}};
    static const struct row of_host[] = {
        {"FCMaxNumberExchanges", "max_xri", row_plain},
        {"FCMaxNumberOutStandingCommands", "can_queue", row_plain},
        {0},
    };
    char text[sysfs_text_size];
    char permanent[sysfs_text_size];
    char host[sysfs_path_size];
    sysfs_put(object, partition->device, of_port);
    (void)sysfs_text(partition->device, "port_name", text);
    const bool is_virtual = sysfs_text(partition->device, "permanent_port_name", permanent) &&
                            strcmp(text, permanent) != 0;
    object_put_string(object, "WWPN", is_virtual ? permanent : text);
    object_put_string(object, "VirtualWWPN", is_virtual ? text : "");
    find_scsi_host(host, partition->device);
    sysfs_put(object, host, of_host);
}

void scan_fc(void)
{
    static struct adapter_family family = {
        .prefix = "FC",
        .title = "Fibre Channel",
        .code = 0x0C04,
        .find_ports = find_ports,
        .directory = "",
        .put_slot = put_slot,
        .put_port = put_port,
        .put_partition = put_partition,
        .slot = {DUMP_KIND(FCSlot)},
        .controller = {OBJECT_KIND(system, FCController)},
        .port = {OBJECT_KIND(system, FCPort), .put_counters = put_counters},
        .partition = {OBJECT_KIND(system, FCPartition)},
    };
    adapter_scan(&family);
}
