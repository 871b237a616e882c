#define _POSIX_C_SOURCE 200809L /* strdup */

#include "adapter.h"

#include "devices.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-daemon.h>

enum
{
    name_size = card_name_size + 32,
    most_ports = 255 /* of a controller, whose property is a byte */
};

/* What the present scan has found. */
static struct adapter_port* found;
static size_t found_count;

void adapter_add(const struct adapter_port* port)
{
    struct adapter_port* more = realloc(found, (found_count + 1) * sizeof *found);
    if (more == NULL)
    {
        return;
    }
    found = more;
    found[found_count] = *port;
    if ((found[found_count].device = strdup(port->device)) != NULL)
    {
        ++found_count;
    }
}

/* By card, function and number. */
static int compare(const void* left, const void* right)
{
    const struct adapter_port* one = left;
    const struct adapter_port* other = right;
    const uint64_t place = (uint64_t)one->card.location.function << 32 | one->number;
    const uint64_t other_place = (uint64_t)other->card.location.function << 32 | other->number;
    const int order = strcmp(one->card.name, other->card.name);
    return order != 0             ? order
           : place != other_place ? (place < other_place ? -1 : 1)
                                  : strcmp(one->device, other->device);
}

bool adapter_find_driver(const struct adapter_port* port, char name[sysfs_path_size])
{
    return sysfs_link_name(port->device, "device/driver", name) ||
           (port->card.is_pci && sysfs_link_name(port->card.function, "driver", name));
}

static bool has_rdma(const struct adapter_port* port)
{
    return sysfs_has_directory(port->card.function, "infiniband");
}

void adapter_put_capabilities(struct object* object, const struct adapter_port* port)
{
    char driver[sysfs_path_size];
    uint64_t functions = 0;
    const char* function = port->card.function;
    const bool is_bound = adapter_find_driver(port, driver);
    object_put_switch(object, "RDMASupport", is_bound, is_bound && has_rdma(port));
    object_put_switch(object, "OnChipThermalSensor", is_bound,
                      is_bound && sysfs_has_directory(function, "hwmon"));
    /* The kernel has the file for each physical function that can have virtual ones. */
    (void)(port->card.is_pci && sysfs_number(function, "sriov_totalvfs", 10, &functions));
    object_put_switch(object, "VFSRIOVSupport", port->card.is_pci, functions > 0);
}

void adapter_put_rdma(struct object* object, const char* port)
{
    static const struct row rows[] = {
        {"RDMARxTotalPackets", "counters/port_rcv_packets", row_counter},
        {"RDMATxTotalPackets", "counters/port_xmit_packets", row_counter},
        {"RDMARxTotalBytes", "counters/port_rcv_data", row_words},
        {"RDMATxTotalBytes", "counters/port_xmit_data", row_words},
        /* As drivers of iWARP adapters call them. */
        {"RDMATxTotalReadReqPkts", "hw_counters/iwOutRdmaReads", row_counter},
        {"RDMATxTotalSendPkts", "hw_counters/iwOutRdmaSends", row_counter},
        {"RDMATxTotalWritePkts", "hw_counters/iwOutRdmaWrites", row_counter},
        {0},
    };
    sysfs_put(object, port, rows);
}

void adapter_put_link(struct object* object, bool is_known, bool is_up)
{
    object_put_switch(object, "LinkStatus", is_known, is_up);
    object_put_switch(object, "PartitionLinkStatus", is_known, is_up);
}

/* The object, if it has to be read. */
static struct object* due(struct kind* kind, const char* prefix, const char* name,
                          const struct adapter_port* port)
{
    const unsigned int bound = 1;
    char driver[sysfs_path_size];
    struct object* object = object_due(kind, name, port->device);
    if (object != NULL)
    {
        object->tag = port->tag;
        object_put_format(object, "FQDD", "%s.%s", prefix, name);
        if (adapter_find_driver(port, driver))
        {
            object_put_number(object, "OSDriverState", bound);
            object_put_number(object, "PartitionOSDriverState", bound);
            object_put_string(object, "OSDriver", driver);
            object_put_string(object, "RDMAOSDriver", has_rdma(port) ? driver : NULL);
        }
    }
    return object;
}

static void scan_partition(struct adapter_family* family, const char* port, unsigned int number,
                           const struct adapter_port* partition)
{
    char name[name_size + 16];
    snprintf(name, sizeof name, "%s-%u", port, number);
    struct object* object = due(&family->partition, family->prefix, name, partition);
    if (object != NULL)
    {
        object_put_format(object, "FriendlyFQDD", "Partition %u of port %s.%s", number,
                          family->prefix, port);
        card_put_function(object, &partition->card);
        if (family->put_partition != NULL)
        {
            family->put_partition(object, partition);
        }
        object_complete(object);
    }
}

static void scan_port(struct adapter_family* family, const char* name, unsigned int number,
                      const struct adapter_port* port, unsigned int partitions)
{
    struct object* object = due(&family->port, family->prefix, name, port);
    if (family->scan_port != NULL)
    {
        family->scan_port(name, port, object != NULL);
    }
    if (object != NULL)
    {
        object_put_format(object, "FriendlyFQDD", "Port %u of adapter %s.%s", number,
                          family->prefix, port->card.name);
        object_put_number(object, "PortNumber", number);
        object_put_number(object, "PartitionCount", partitions);
        object_put_number(object, "PartitionsCount", partitions);
        object_put_switch(object, "NicPartitioningSupport", partitions > 1, true); /* of one alone
                                                                         it isn't known */
        family->put_port(object, port);
        object_complete(object);
    }
}

/* Whether both are partitions of one port. */
static bool share_port(const struct adapter_port* one, const struct adapter_port* other)
{
    return one == other || (one->id[0] != '\0' && strcmp(one->id, other->id) == 0);
}

/* Returns how many ports a card has. */
static unsigned int scan_ports(struct adapter_family* family, const struct adapter_port* items,
                               size_t count)
{
    unsigned int ports = 0;
    unsigned int last = 0;
    for (size_t i = 0; i < count; ++i)
    {
        const struct adapter_port* first = &items[i];
        char name[name_size];
        unsigned int partitions = 0;
        size_t former = 0;
        while (former < i && !share_port(&items[former], first))
        {
            ++former;
        }
        if (former < i || first->device[0] == '\0')
        {
            continue; /* a partition of a former one's port, or no port */
        }
        unsigned int number = first->card.location.function + first->number + 1;
        number = number > last ? number : last + 1;
        last = number;
        snprintf(name, sizeof name, "%s-%u", first->card.name, number);
        for (size_t other = i; other < count; ++other)
        {
            if (share_port(&items[other], first))
            {
                scan_partition(family, name, ++partitions, &items[other]);
            }
        }
        scan_port(family, name, number, first, partitions);
        ++ports;
    }
    return ports;
}

static void scan_controller(struct adapter_family* family, const char* card, const char* device,
                            unsigned int ports)
{
    static bool is_told;
    struct object* object = object_due(&family->controller, card, device);
    if (object != NULL)
    {
        object_put_number(object, "PortsCount", ports < most_ports ? ports : most_ports);
        object_complete(object);
    }
    if (ports > most_ports && !is_told)
    {
        is_told = true;
        fprintf(stderr, SD_NOTICE "%s.%s has %u ports, and PortsCount can't exceed %u\n",
                family->prefix, card, ports, most_ports);
    }
}

/* `items` are those of one card. */
static void scan_card(struct adapter_family* family, const struct adapter_port* items, size_t count)
{
    const struct card* card = &items->card;
    const unsigned int ports = scan_ports(family, items, count);
    const bool has_slot = card->function[0] != '\0';
    struct object* object = has_slot ? object_due(&family->slot, card->name, card->function) : NULL;
    if (object != NULL)
    {
        const struct adapter_port* first = items;
        char fqdd[name_size];
        while (first + 1 < items + count && first->device[0] == '\0')
        {
            ++first;
        }
        snprintf(fqdd, sizeof fqdd, "%s.%s", family->prefix, card->name);
        card_put_slot(object, card, fqdd);
        object_put_format(object, "FriendlyFQDD", "%s adapter %s", family->title, card->name);
        object_put_number(object, "PartitionCount", ports);
        family->put_slot(object, first);
        object_complete(object);
    }
    scan_controller(family, card->name, has_slot ? card->function : items->device, ports);
}

static void scan_function(void* data, const char* device)
{
    struct adapter_family* family = data;
    struct adapter_port none = {.device = ""};
    if (!card_find(&none.card, device))
    {
        return;
    }
    if (card_has_class(device, family->code) && !card_has_class(device, family->other_code))
    {
        adapter_add(&none);
    }
    if (family->find_ports != NULL)
    {
        sysfs_each(device, family->directory, family->find_ports, &none.card);
    }
}

void adapter_scan(struct adapter_family* family)
{
    devices_each("pci", scan_function, family);
    if (found_count > 0)
    {
        qsort(found, found_count, sizeof *found, compare);
    }
    for (size_t first = 0, end = 0; first < found_count; first = end)
    {
        while (end < found_count && strcmp(found[end].card.name, found[first].card.name) == 0)
        {
            ++end;
        }
        scan_card(family, &found[first], end - first);
    }
    for (; found_count > 0; --found_count)
    {
        free(found[found_count - 1].device);
    }
    free(found);
    found = NULL;
}
