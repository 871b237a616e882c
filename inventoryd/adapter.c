#include "adapter.h"

#include "devices.h"

#include <stdio.h>
#include <string.h>

struct adapter_scan
{
    struct adapter_family* family;
    struct card function;       /* whose ports are looked for */
    struct card card;           /* its first function; without a name before the first card */
    char port[sysfs_path_size]; /* its first one, or empty */
    unsigned int ports;
    unsigned int last_number;
};

static void end_card(struct adapter_scan* scan)
{
    struct adapter_family* family = scan->family;
    char fqdd[card_name_size + 8];
    if (scan->card.name[0] == '\0')
    {
        return;
    }
    snprintf(fqdd, sizeof fqdd, "%s.%s", family->prefix, scan->card.name);
    struct object* object = object_due(&family->slot, scan->card.name, scan->card.function);
    if (object != NULL)
    {
        card_put_slot(object, &scan->card, fqdd);
        object_put_format(object, "FriendlyFQDD", "%s adapter %s", family->title, scan->card.name);
        family->put_slot(object, &scan->card, scan->port, scan->ports);
        object_announce(object);
    }
    object = object_due(&family->controller, scan->card.name, scan->card.function);
    if (object != NULL)
    {
        object_put_byte(object, "PortsCount", scan->ports);
        object_announce(object);
    }
}

static void begin_card(struct adapter_scan* scan)
{
    if (strcmp(scan->card.name, scan->function.name) != 0)
    {
        end_card(scan);
        scan->card = scan->function;
        scan->port[0] = '\0';
        scan->ports = 0;
        scan->last_number = 0;
    }
}

void adapter_found(struct adapter_scan* scan, const char* port, unsigned int number)
{
    struct adapter_family* family = scan->family;
    const struct card* card = &scan->function;
    char name[card_name_size + 32];
    begin_card(scan);
    if (scan->ports++ == 0)
    {
        snprintf(scan->port, sizeof scan->port, "%s", port);
    }
    number += card->location.function;
    number = number > scan->last_number ? number : scan->last_number + 1;
    scan->last_number = number;
    snprintf(name, sizeof name, "%s-%u", card->name, number);
    struct object* object = object_due(&family->port, name, port);
    if (object != NULL)
    {
        object_put_format(object, "FQDD", "%s.%s", family->prefix, name);
        object_put_format(object, "FriendlyFQDD", "Port %u of adapter %s.%s", number,
                          family->prefix, card->name);
        object_put_byte(object, family->partition_count, 1);
        object->tag = number;
        family->put_port(object, card);
        object_announce(object);
    }
    snprintf(name, sizeof name, "%s-%u-1", card->name, number);
    object = object_due(&family->partition, name, port);
    if (object != NULL)
    {
        object_put_format(object, "FQDD", "%s.%s", family->prefix, name);
        object_put_format(object, "FriendlyFQDD", "Partition 1 of port %s.%s-%u", family->prefix,
                          card->name, number);
        card_put_location(object, card);
        family->put_partition(object, card);
        object_announce(object);
    }
}

static void scan_function(void* data, const char* device, const char* name)
{
    struct adapter_scan* scan = data;
    (void)name;
    if (!card_find(&scan->function, device))
    {
        return;
    }
    if (card_has_class(device, scan->family->code))
    {
        begin_card(scan);
    }
    scan->family->find_ports(scan, device);
}

void adapter_scan(struct adapter_family* family)
{
    struct adapter_scan scan = {.family = family};
    devices_each("pci", scan_function, &scan);
    end_card(&scan);
}

void adapter_put_counter(struct object* object, const char* member, uint64_t value)
{
    if (value != UINT64_MAX)
    {
        object_put_uint32(object, member, value < UINT32_MAX ? value : UINT32_MAX);
    }
}
