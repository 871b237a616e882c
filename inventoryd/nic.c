#define _XOPEN_SOURCE 700 /* strdup, realpath */

#include "nic.h"

#include "devices.h"
#include "inventory.h"
#include "modules.h"
#include "slots.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-daemon.h>
#include <time.h>

bool nic_every_interface;

static const char turns[] = "network ports and their partitions";

static struct kind controller_kind = {OBJECT_KIND(system, NicController)};
static struct kind port_kind = {
    OBJECT_KIND(system, NicPort),
    .put_counters = nic_put_port_counters,
    .turns = turns,
};
static struct kind partition_kind = {
    OBJECT_KIND(system, NicPartition),
    .put_counters = nic_put_partition_counters,
    .turns = turns,
};
static struct kind connection_kind = {OBJECT_KIND(system, NicConnectionView)};

/* This host's codes. */
enum
{
    link_unknown = 0,
    link_up = 1,
    link_down = 2,
    driver_bound = 1,
    most_ports = 255 /* of a controller, whose property is a byte */
};

void nic_put_link_status(struct object* object, const char* member,
                         const struct rtnetlink_link* link)
{
    object_put_byte(object, member,
                    link->state == IF_OPER_UP ? link_up
                    : link->state == IF_OPER_DOWN || link->state == IF_OPER_LOWERLAYERDOWN
                        ? link_down
                        : link_unknown);
}

void nic_put_driver_state(struct object* object, const char* member, const char* device)
{
    char driver[sysfs_path_size];
    if (sysfs_link_name(device, "device/driver", driver))
    {
        object_put_byte(object, member, driver_bound);
    }
}

void nic_put_counters(struct object* object, const struct rtnetlink_link* link,
                      const struct nic_counter* counters, size_t count)
{
    if (!link->has_counters)
    {
        return;
    }
    for (const struct nic_counter* each = counters; each < counters + count; ++each)
    {
        uint64_t value = 0;
        memcpy(&value, (const char*)&link->counters + each->offset, sizeof value);
        each->put(object, each->member, value);
    }
}

void nic_put_statistics_times(struct object* object)
{
    const uint64_t now = (uint64_t)time(NULL);
    if (object->is_new)
    {
        object_put_uint32(object, "StatisticsStartTime", now);
    }
    /* Otherwise the time alone would be a change, each time that the counters are read. */
    if (object_has_changes(object))
    {
        object_put_uint32(object, "StatisticsTime", now);
    }
}

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
    for (size_t i = 0; i < seen_count; ++i)
    {
        if (seen[i].index == link->index)
        {
            return strcmp(seen[i].name, link->name) == 0;
        }
    }
    return false;
}

/* The interfaces that the present scan has found. */
static struct
{
    struct nic_interface* items;
    size_t count;
    size_t room;
} found;

static bool is_port(struct nic_interface* interface, const char* name)
{
    uint64_t type = 0;
    if (sysfs_number(interface->device, "type", 10, &type) && type == ARPHRD_INFINIBAND)
    {
        return false;
    }
    if (strstr(interface->device, "/devices/virtual/") == NULL)
    {
        return card_find(&interface->card, interface->device);
    }
    snprintf(interface->card.name, sizeof interface->card.name, "%s", name);
    return nic_every_interface;
}

/* Ports that aren't told apart by their driver are told apart by function and number. */
static void find_port(struct nic_interface* interface)
{
    char text[sysfs_text_size];
    uint64_t number = 0;
    interface->function = interface->card.location.function;
    if (sysfs_number(interface->device, "dev_port", 10, &number) && number <= UINT16_MAX)
    {
        interface->port_of_function = (unsigned int)number;
    }
    snprintf(interface->port, sizeof interface->port, "%u-%u", interface->function,
             interface->port_of_function);
    if (sysfs_text(interface->device, "phys_port_id", text) && text[0] != '\0')
    {
        snprintf(interface->port, sizeof interface->port, "%.63s", text);
    }
}

static void collect(void* data, const char* device, const char* name)
{
    (void)data;
    if (found.count == found.room)
    {
        const size_t room = found.room > 0 ? 2 * found.room : 16;
        struct nic_interface* items = realloc(found.items, room * sizeof *items);
        if (items == NULL)
        {
            return;
        }
        found.items = items;
        found.room = room;
    }
    struct nic_interface* interface = &found.items[found.count];
    memset(interface, 0, sizeof *interface);
    interface->device = strdup(device);
    interface->has_link = interface->device != NULL && rtnetlink_ask(&interface->link, device);
    /* The directory of an interface outlives it for a moment. */
    if (interface->device == NULL || (!interface->has_link && !sysfs_is_recorded()))
    {
        free(interface->device);
        return;
    }
    remember(&interface->link);
    if (!is_port(interface, name))
    {
        free(interface->device);
        return;
    }
    find_port(interface);
    ++found.count;
}

static int compare(const void* left, const void* right)
{
    const struct nic_interface* one = left;
    const struct nic_interface* other = right;
    int order = strcmp(one->card.name, other->card.name);
    order = order != 0 ? order : (int)one->function - (int)other->function;
    order = order != 0 ? order : (int)one->port_of_function - (int)other->port_of_function;
    return order != 0 ? order : strcmp(one->device, other->device);
}

/* The object, if it has to be read: also if its interface is another one of the same name. */
static struct object* due(struct kind* kind, const char* name,
                          const struct nic_interface* interface)
{
    struct object* object = object_due(kind, name, interface->device);
    if (object != NULL)
    {
        object->tag = (uint64_t)interface->link.index;
    }
    return object;
}

static void scan_partition(const char* port, unsigned int number,
                           const struct nic_interface* interface)
{
    char name[2 * card_name_size];
    snprintf(name, sizeof name, "%s-%u", port, number);
    struct object* object = due(&partition_kind, name, interface);
    if (object != NULL)
    {
        object_put_format(object, "FQDD", "NIC.%s", name);
        object_put_format(object, "FriendlyFQDD", "Partition %u of port NIC.%s", number, port);
        nic_put_partition(object, interface);
        object_complete(object);
    }
}

static void scan_port(const char* name, unsigned int number, const struct nic_interface* first,
                      unsigned int partitions)
{
    struct object* object = due(&port_kind, name, first);
    modules_scan_port(name, first->device, (uint64_t)first->link.index, object != NULL);
    if (object != NULL)
    {
        object_put_format(object, "FQDD", "NIC.%s", name);
        object_put_format(object, "FriendlyFQDD", "Port %u of adapter NIC.%s", number,
                          first->card.name);
        object_put_byte(object, "PartitionCount", partitions);
        object_put_byte(object, "NicPartitioningSupport",
                        object_switch(partitions > 1, true)); /* of one alone it isn't known */
        nic_put_port(object, first);
        object_complete(object);
    }
    object = due(&connection_kind, name, first);
    if (object != NULL)
    {
        object_put_format(object, "FQDD", "NIC.%s", name);
        nic_put_connection(object, first);
        object_complete(object);
    }
}

/* Whether both are partitions of one port. */
static bool share_port(const struct nic_interface* one, const struct nic_interface* other)
{
    return strcmp(one->card.name, other->card.name) == 0 && strcmp(one->port, other->port) == 0;
}

/* `interfaces` are those of one card. Returns how many ports they are. */
static unsigned int scan_ports(const struct nic_interface* interfaces, size_t count)
{
    unsigned int ports = 0;
    unsigned int last = 0;
    for (size_t i = 0; i < count; ++i)
    {
        const struct nic_interface* first = &interfaces[i];
        char name[card_name_size + 16];
        unsigned int partitions = 0;
        size_t former = 0;
        while (former < i && !share_port(&interfaces[former], first))
        {
            ++former;
        }
        if (former < i)
        {
            continue; /* a partition of a former one's port */
        }
        unsigned int number = first->function + first->port_of_function + 1;
        number = number > last ? number : last + 1;
        last = number;
        snprintf(name, sizeof name, "%s-%u", first->card.name, number);
        for (size_t other = i; other < count; ++other)
        {
            if (share_port(&interfaces[other], first))
            {
                scan_partition(name, ++partitions, &interfaces[other]);
            }
        }
        scan_port(name, number, first, partitions);
        ++ports;
    }
    return ports;
}

static void scan_controller(const char* card, const char* device, unsigned int ports)
{
    static bool is_told;
    struct object* object = object_due(&controller_kind, card, device);
    if (object != NULL)
    {
        object_put_byte(object, "PortsCount", ports < most_ports ? ports : most_ports);
        object_complete(object);
    }
    if (ports > most_ports && !is_told)
    {
        is_told = true;
        fprintf(stderr, SD_NOTICE "NIC.%s has %u ports, and PortsCount can't exceed %u\n", card,
                ports, most_ports);
    }
}

static void scan_card(const struct nic_interface* interfaces, size_t count)
{
    const struct card* card = &interfaces->card;
    if (!card->is_pci && card->function[0] != '\0')
    {
        slots_scan_card(card); /* of PCI, the functions are enough for a slot */
    }
    const unsigned int ports = scan_ports(interfaces, count);
    scan_controller(card->name, card->function[0] != '\0' ? card->function : interfaces->device,
                    ports);
}

static void scan_pci_function(void* data, const char* device, const char* name)
{
    enum
    {
        network = 0x02FF,
        infiniband = 0x0207
    };
    struct card card;
    size_t i = 0;
    (void)data, (void)name;
    if (!card_has_class(device, network) || card_has_class(device, infiniband) ||
        !card_find(&card, device))
    {
        return;
    }
    slots_scan_card(&card);
    while (i < found.count && strcmp(found.items[i].card.name, card.name) != 0)
    {
        ++i;
    }
    if (i == found.count)
    {
        scan_controller(card.name, card.function, 0); /* it has no driver */
    }
}

void scan_nic(void)
{
    seen_count = 0;
    devices_each("net", collect, NULL);
    if (found.count > 0)
    {
        qsort(found.items, found.count, sizeof *found.items, compare);
    }
    devices_each("pci", scan_pci_function, NULL);
    for (size_t first = 0, end = 0; first < found.count; first = end)
    {
        while (end < found.count &&
               strcmp(found.items[end].card.name, found.items[first].card.name) == 0)
        {
            ++end;
        }
        scan_card(&found.items[first], end - first);
    }
    for (size_t i = 0; i < found.count; ++i)
    {
        free(found.items[i].device);
    }
    free(found.items);
    memset(&found, 0, sizeof found);
}

static void (*on_change)(void);

void nic_note(const char* device)
{
    devices_note(device);
    if (on_change != NULL)
    {
        on_change();
    }
}

static void on_link(const struct rtnetlink_link* link)
{
    char path[sysfs_path_size];
    char place[sizeof "class/net/" + IF_NAMESIZE];
    struct object* object = NULL;
    if (link == NULL || link->removed || !is_known(link))
    {
        snprintf(place, sizeof place, "class/net/%s", link != NULL ? link->name : "");
        char* device =
            link != NULL && sysfs_join(path, sysfs_root, place) ? realpath(path, NULL) : NULL;
        if (link == NULL || device != NULL)
        {
            devices_note(device);
        }
        free(device);
        on_change();
        return;
    }
    if ((object = kind_find(&port_kind, (uint64_t)link->index)) != NULL)
    {
        nic_put_port_link(object, link);
        if (link->state == IF_OPER_UP && object_has_changes(object) && modules_may_come(object))
        {
            nic_note(object->device);
        }
        object_announce(object);
    }
    if ((object = kind_find(&partition_kind, (uint64_t)link->index)) != NULL)
    {
        nic_put_partition_link(object, link);
        object_announce(object);
    }
}

int nic_watch(sd_event* event, void (*changed)(void))
{
    on_change = changed;
    return rtnetlink_watch(event, on_link);
}
