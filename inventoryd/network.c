#define _POSIX_C_SOURCE 200809L /* strdup */

#include "network.h"

#include "nic.h"

#include <stdlib.h>
#include <string.h>

struct network_interface
{
    struct network_interface* next;
    int index;
    char name[IF_NAMESIZE];
    unsigned int refresh; /* the number of the last network_refresh that found it */
    /* If it is a port: */
    char* device; /* its directory, otherwise null */
    struct object port;
    struct object partition;
    struct object connection;
};

static void count_ports(struct network* network)
{
    uint64_t count = 0;
    for (const struct network_interface* each = network->first; each != NULL; each = each->next)
    {
        count += each->device != NULL ? 1 : 0;
    }
    object_put_byte(&network->controller, "PortsCount", count);
    (network->announces ? object_announce : object_forget_changes)(&network->controller);
}

/* Makes it an interface that is no port. */
static void withdraw(struct network_interface* interface)
{
    object_withdraw(&interface->port);
    object_withdraw(&interface->partition);
    object_withdraw(&interface->connection);
    free(interface->device);
    interface->device = NULL;
}

static void remove_at(struct network* network, struct network_interface** at)
{
    struct network_interface* removed = *at;
    *at = removed->next;
    withdraw(removed);
    free(removed);
    count_ports(network);
}

/* The interface, or null if it isn't known. One that has its number or its name, but not both, was
 * renamed or has disappeared, and is removed. */
static struct network_interface** find(struct network* network, const struct rtnetlink_link* link)
{
    struct network_interface** found = NULL;
    for (struct network_interface** each = &network->first; *each != NULL;)
    {
        const bool same_index = (*each)->index == link->index;
        const bool same_name = strcmp((*each)->name, link->name) == 0;
        if (same_index != same_name)
        {
            remove_at(network, each);
            continue;
        }
        found = same_index ? each : found;
        each = &(*each)->next;
    }
    return found;
}

/* The directory of an interface that is a port, otherwise null. */
static char* find_device(const struct network* network, const char* name)
{
    char device[sysfs_path_size];
    char needed[sysfs_path_size];
    return sysfs_join(device, network->devices, name) &&
                   sysfs_join(needed, device, network->every_interface ? "." : "device") &&
                   sysfs_is_directory(needed)
               ? strdup(device)
               : NULL;
}

static void publish(struct network* network, struct network_interface* added,
                    const struct rtnetlink_link* link)
{
    if ((added->device = find_device(network, link->name)) == NULL)
    {
        return;
    }
    if (!nic_port_publish(&added->port, network->context, added->device, link) ||
        !nic_partition_publish(&added->partition, network->context, added->device, link) ||
        !nic_connection_publish(&added->connection, network->context, added->device, link))
    {
        withdraw(added);
        return;
    }
    void (*const introduce)(struct object*) =
        network->announces ? object_announce_added : object_forget_changes;
    introduce(&added->port);
    introduce(&added->partition);
    introduce(&added->connection);
    count_ports(network);
}

void network_update(struct network* network, const struct rtnetlink_link* link)
{
    struct network_interface** known = find(network, link);
    if (known != NULL && link->removed)
    {
        remove_at(network, known);
    }
    if (known != NULL || link->removed)
    {
        return;
    }
    struct network_interface* added = calloc(1, sizeof *added);
    if (added == NULL)
    {
        return;
    }
    added->index = link->index;
    memcpy(added->name, link->name, sizeof added->name);
    added->refresh = network->refresh;
    added->next = network->first;
    network->first = added;
    publish(network, added, link);
}

static void refresh_one(void* data, const struct rtnetlink_link* link)
{
    struct network* network = data;
    struct network_interface** known = find(network, link);
    if (known == NULL)
    {
        network_update(network, link);
        return;
    }
    struct network_interface* interface = *known;
    interface->refresh = network->refresh;
    if (interface->device != NULL)
    {
        nic_port_read(&interface->port, interface->device, link);
        nic_partition_read(&interface->partition, interface->device, link);
        nic_connection_read(&interface->connection, interface->device);
        object_announce(&interface->port);
        object_announce(&interface->partition);
        object_announce(&interface->connection);
    }
}

void network_refresh(struct network* network)
{
    ++network->refresh;
    if (!rtnetlink_each(network->sys, refresh_one, network))
    {
        return; /* the next one may have all interfaces */
    }
    for (struct network_interface** each = &network->first; *each != NULL;)
    {
        if ((*each)->refresh != network->refresh)
        {
            remove_at(network, each);
            continue;
        }
        each = &(*each)->next;
    }
}

void network_publish(struct network* network, GANTRY_cpp_context* context, const char* sys,
                     bool every_interface)
{
    memset(network, 0, sizeof *network);
    network->context = context;
    network->sys = sys;
    network->every_interface = every_interface;
    object_publish(&network->controller, context,
                   GANTRY_instantiate__com_orvane_velmar_system_NicController,
                   "com.orvane.velmar.system.NicController", NULL);
    if (sysfs_join(network->devices, sys, "class/net"))
    {
        network_refresh(network);
    }
    network->announces = true;
}

void network_free(struct network* network)
{
    while (network->first != NULL)
    {
        struct network_interface* freed = network->first;
        network->first = freed->next;
        free(freed->device);
        free(freed);
    }
}
