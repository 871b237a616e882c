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
    enum
    {
        protocol_ethernet = 1 /* this host's code */
    };
    object_put_number(object, "Protocol", protocol_ethernet);
    dump_put_slot(object, &first->card);
}

static void scan_port(const char* name, const struct adapter_port* port, bool is_due)
{
    static struct kind connection_kind = {
        OBJECT_KIND(system, NicConnectionView),
        .put_counters = nic_put_connection,
        .interval = 30,
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
    .port = {OBJECT_KIND(system, NicPort), .put_counters = nic_put_counters, .interval = 1,
             .turn = 1},
    .partition = {OBJECT_KIND(system, NicPartition), .put_counters = nic_put_counters,
                  .interval = 1, .turn = 2},
};

/* All interfaces that the last scan saw, ports or not: only another one is worth a scan. */
static struct seen
{
    int index;
    char name[IF_NAMESIZE];
} * seen;
static size_t seen_count;

static void remember(const struct rtnetlink_link* link)
{
    struct seen* more = realloc(seen, (seen_count + 1) * sizeof *seen);
    if (more != NULL)
    {
        seen = more;
        seen[seen_count].index = link->index;
        memcpy(seen[seen_count].name, link->name, sizeof link->name);
        ++seen_count;
    }
}

static bool is_known(const struct rtnetlink_link* link)
{
    size_t i = 0;
    while (i < seen_count && seen[i].index != link->index)
    {
        ++i;
    }
    return i < seen_count && strcmp(seen[i].name, link->name) == 0;
}

static void collect(void* data, const char* device, const char* name)
{
    struct adapter_port port = {.device = (char*)device};
    struct rtnetlink_link link;
    char text[sysfs_text_size];
    uint64_t number = 0;
    const bool is_software = strstr(device, "/devices/virtual/") != NULL;
    (void)data;
    /* The directory of an interface outlives it for a moment; a record may lack the message. */
    if (!rtnetlink_ask(&link, device) && !sysfs_is_recorded())
    {
        return;
    }
    remember(&link);
    if ((sysfs_number(device, "type", 10, &number) && number == ARPHRD_INFINIBAND) ||
        !(is_software ? nic_every_interface : card_find(&port.card, device)))
    {
        return;
    }
    if (is_software)
    {
        snprintf(port.card.name, sizeof port.card.name, "%s", name);
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
    seen_count = 0;
    devices_each("net", collect, NULL);
    adapter_scan(&family);
}

static void on_link(const struct rtnetlink_link* link)
{
    char path[sysfs_path_size];
    char place[sizeof "class/net/" + IF_NAMESIZE];
    struct object* object = NULL;
    if (link == NULL)
    {
        devices_note(NULL);
        return;
    }
    if (link->removed || !is_known(link))
    {
        snprintf(place, sizeof place, "class/net/%s", link->name);
        char* device = sysfs_join(path, sysfs_root, place) ? realpath(path, NULL) : NULL;
        devices_note(device != NULL ? device : place);
        free(device);
        return;
    }
    if ((object = kind_find(&family.port, (uint64_t)link->index)) != NULL)
    {
        nic_put_link(object, link);
        if (object_has_changes(object))
        {
            nic_put_settings(object);
            if (link->state == IF_OPER_UP && modules_may_come(object))
            {
                devices_note(object->device);
            }
        }
        object_announce(object);
    }
    if ((object = kind_find(&family.partition, (uint64_t)link->index)) != NULL)
    {
        nic_put_link(object, link);
        object_announce(object);
    }
}

int nic_watch(sd_event* event)
{
    return rtnetlink_watch(event, on_link);
}
