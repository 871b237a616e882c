#define _POSIX_C_SOURCE 200809L /* strdup */

#include "network.h"

#include "nic.h"

#include <stdlib.h>
#include <string.h>

struct network_interface
{
    struct network_interface* next;
    char* device;
    const char* name; /* the last component of `device` */
    uint64_t index;   /* the kernel's number, which a later interface of this name doesn't have */
    struct object port;
    struct object partition;
    struct object connection;
};

/* The link that points to the interface; the last link, which is null, if it isn't known. */
static struct network_interface** find(struct network* network, const char* name)
{
    struct network_interface** link = &network->first;
    while (*link != NULL && strcmp((*link)->name, name) != 0)
    {
        link = &(*link)->next;
    }
    return link;
}

static uint64_t index_of(const char* device)
{
    uint64_t index = 0;
    return sysfs_number(device, "ifindex", 10, &index) ? index : 0;
}

static void count_ports(struct network* network)
{
    uint64_t count = 0;
    for (const struct network_interface* each = network->first; each != NULL; each = each->next)
    {
        ++count;
    }
    object_put_byte(&network->controller, "PortsCount", count);
    (network->announces ? object_announce : object_forget_changes)(&network->controller);
}

static void free_interface(struct network_interface* interface)
{
    free(interface->device);
    free(interface);
}

static void withdraw(struct network_interface* interface)
{
    object_withdraw(&interface->port);
    object_withdraw(&interface->partition);
    object_withdraw(&interface->connection);
    free_interface(interface);
}

static void remove_at(struct network* network, struct network_interface** link)
{
    struct network_interface* removed = *link;
    *link = removed->next;
    withdraw(removed);
    count_ports(network);
}

void network_remove(struct network* network, const char* name)
{
    struct network_interface** link = find(network, name);
    if (*link != NULL)
    {
        remove_at(network, link);
    }
}

static void remove_gone(struct network* network)
{
    struct network_interface** link = &network->first;
    while (*link != NULL)
    {
        if (sysfs_is_directory((*link)->device) && index_of((*link)->device) == (*link)->index)
        {
            link = &(*link)->next;
        }
        else
        {
            remove_at(network, link);
        }
    }
}

void network_add(struct network* network, const char* name)
{
    char device[sysfs_path_size];
    /* The bonding driver puts a plain file among the interfaces' directories. */
    if (*find(network, name) != NULL || !sysfs_join(device, network->devices, name) ||
        !sysfs_is_directory(device))
    {
        return;
    }
    /* It may be a renamed interface. */
    remove_gone(network);
    struct network_interface* added = calloc(1, sizeof *added);
    if (added == NULL || (added->device = strdup(device)) == NULL)
    {
        free(added);
        return;
    }
    added->name = strrchr(added->device, '/') + 1;
    added->index = index_of(device);
    if (!nic_port_publish(&added->port, network->context, device, name) ||
        !nic_partition_publish(&added->partition, network->context, device, name) ||
        !nic_connection_publish(&added->connection, network->context, device, name))
    {
        withdraw(added);
        return;
    }
    added->next = network->first;
    network->first = added;
    void (*const introduce)(struct object*) =
        network->announces ? object_announce_added : object_forget_changes;
    introduce(&added->port);
    introduce(&added->partition);
    introduce(&added->connection);
    count_ports(network);
}

static void add_entry(void* network, const char* device, const char* name)
{
    (void)device;
    network_add(network, name);
}

void network_rescan(struct network* network)
{
    remove_gone(network);
    sysfs_each(network->devices, add_entry, network);
}

void network_refresh(struct network* network)
{
    remove_gone(network);
    for (struct network_interface* each = network->first; each != NULL; each = each->next)
    {
        nic_port_read(&each->port, each->device);
        nic_partition_read(&each->partition, each->device);
        nic_connection_read(&each->connection, each->device);
        object_announce(&each->port);
        object_announce(&each->partition);
        object_announce(&each->connection);
    }
}

void network_publish(struct network* network, GANTRY_cpp_context* context, const char* sys)
{
    network->context = context;
    network->first = NULL;
    network->announces = false;
    object_publish(&network->controller, context,
                   GANTRY_instantiate__com_orvane_velmar_system_NicController,
                   "com.orvane.velmar.system.NicController", NULL);
    if (sysfs_join(network->devices, sys, "class/net"))
    {
        network_rescan(network);
    }
    network->announces = true;
}

void network_free(struct network* network)
{
    while (network->first != NULL)
    {
        struct network_interface* freed = network->first;
        network->first = freed->next;
        free_interface(freed);
    }
}
