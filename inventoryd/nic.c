#define _XOPEN_SOURCE 700 /* realpath */

#include "nic.h"

#include "devices.h"
#include "inventory.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

bool nic_every_interface;

static void put_slot(struct object* object, const struct adapter_port* first)
{
    const unsigned int ethernet = 1; /* this host's code */
    object_put_number(object, "Protocol", ethernet);
    dump_put_slot(object, &first->card);
}

static void scan_port(const char* name, const struct adapter_port* port, bool is_due)
{
    static struct kind connection_kind = {
        OBJECT_KIND(system, NicConnectionView),
        .put_counters = nic_put_connection,
        .is_slow = true,
    };
    struct object* connection = object_due(&connection_kind, name, port->device);
    if (connection != NULL)
    {
        object_put_format(connection, "FQDD", "NIC.%s", name);
        object_complete(connection);
    }
    modules_scan_port(name, port->device, port->tag, is_due);
}

static struct adapter_family family = {
    .prefix = "NIC",
    .title = "Network",
    .code = 0x02FF,
    .other_code = 0x0207, /* InfiniBand */
    .put_slot = put_slot,
    .put_port = nic_put_port,
    .scan_port = scan_port,
    .slot = {DUMP_KIND(NicSlot)},
    .controller = {OBJECT_KIND(system, NicController)},
    .port = {OBJECT_KIND(system, NicPort), .put_counters = nic_put_counters, .turn = 1},
    .partition = {OBJECT_KIND(system, NicPartition), .put_counters = nic_put_counters, .turn = 2},
};

/* Whether the interface is a port of a card, which is found, or counts as one. */
static bool is_port(struct card* card, const char* device)
{
    const bool is_software = strstr(device, "/devices/virtual/") != NULL;
    uint64_t type = 0;
    memset(card, 0, sizeof *card);
    if ((is_software && !nic_every_interface) ||
        (sysfs_number(device, "type", 10, &type) && type == ARPHRD_INFINIBAND))
    {
        return false;
    }
    if (!is_software)
    {
        return card_find(card, device);
    }
    snprintf(card->name, sizeof card->name, "%s", sysfs_name(device));
    return true;
}

static void collect(void* data, const char* device)
{
    struct adapter_port port = {.device = (char*)device};
    struct rtnetlink_link link;
    char text[sysfs_text_size];
    uint64_t number = 0;
    (void)data;
    /* The directory of an interface outlives it for a moment; a record may lack the message. */
    if ((!rtnetlink_ask(&link, device) && !sysfs_is_recorded()) || !is_port(&port.card, device))
    {
        return;
    }
    port.tag = (uint64_t)link.index;
    if (sysfs_number(device, "dev_port", 10, &number) && number <= UINT16_MAX)
    {
        port.number = (unsigned int)number;
    }
    if (sysfs_text(device, "phys_port_id", text))
    {
        snprintf(port.id, sizeof port.id, "%.63s", text);
    }
    adapter_add(&port);
}

void scan_nic(void)
{
    devices_each("net", collect, NULL);
    adapter_scan(&family);
}

/* Has an interface scanned that is a port, and isn't known yet. */
static void note_new(const char* name)
{
    struct card card;
    char path[sysfs_path_size];
    char place[sizeof "class/net/" + IF_NAMESIZE];
    snprintf(place, sizeof place, "class/net/%s", name);
    char* device = sysfs_join(path, sysfs_root, place) ? realpath(path, NULL) : NULL;
    if (device != NULL && is_port(&card, device))
    {
        devices_note(device);
    }
    free(device);
}

static void on_link(const struct rtnetlink_link* link)
{
    if (link == NULL)
    {
        devices_note(NULL);
        return;
    }
    struct object* partition = kind_find(&family.partition, (uint64_t)link->index);
    struct object* port = kind_find(&family.port, (uint64_t)link->index);
    if (partition == NULL)
    {
        note_new(link->name);
        return;
    }
    if (link->removed || strcmp(sysfs_name(partition->device), link->name) != 0)
    {
        devices_note(partition->device);
        return;
    }
    nic_put_link(partition, link);
    object_announce(partition);
    if (port != NULL) /* it is the port's first partition */
    {
        nic_put_link(port, link);
        if (object_has_changes(port))
        {
            nic_put_settings(port);
            if (link->state == IF_OPER_UP && modules_may_come(port))
            {
                devices_note(port->device);
            }
        }
        object_announce(port);
    }
}

int nic_watch(sd_event* event)
{
    return rtnetlink_watch(event, on_link);
}
