/*
 * The machine's network ports: three objects for each (nic.h), and one NicController with their
 * number. A port is a network interface with a device; the loopback, bridges, bonds and other
 * interfaces that are made of software alone have none. The host says when to read the ports again,
 * and passes on what the kernel tells of interfaces that appear and disappear.
 */
#ifndef NETWORK_H
#define NETWORK_H

#include "object.h"
#include "rtnetlink.h"
#include "sysfs.h"

struct network
{
    GANTRY_cpp_context* context;
    const char* sys;
    char devices[sysfs_path_size]; /* class/net */
    bool every_interface;          /* whether those without a device are ports, too */
    bool announces;                /* true once the initial interfaces are published */
    unsigned int refresh;          /* the number of the last network_refresh */
    struct object controller;
    struct network_interface* first;
};

/* Publishes the ports below `sys`. The record and the text must outlive the dispatch loop. */
void network_publish(struct network* network, GANTRY_cpp_context* context, const char* sys,
                     bool every_interface);

/* Reads all ports again, which finds new and removed ones as well, and announces the changes in one
 * signal per object. */
void network_refresh(struct network* network);

/* Adds the interface, unless it is known already, or removes it. */
void network_update(struct network* network, const struct rtnetlink_link* link);

/* Frees the record's memory. The context owns the objects and keeps them. */
void network_free(struct network* network);

#endif
