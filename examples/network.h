/*
 * The machine's network interfaces: three objects for each (nic.h), and one NicController with
 * their number. The host says when to read counters and look for new and removed interfaces.
 */
#ifndef NETWORK_H
#define NETWORK_H

#include "object.h"
#include "sysfs.h"

struct network
{
    GANTRY_cpp_context* context;
    char devices[sysfs_path_size]; /* class/net */
    struct object controller;
    struct network_interface* first;
    bool announces; /* true once the initial interfaces are published */
};

/* Publishes the interfaces below `sys`. The record must outlive the dispatch loop. */
void network_publish(struct network* network, GANTRY_cpp_context* context, const char* sys);

/* Reads the changing values again and announces the changes in one signal per object. */
void network_refresh(struct network* network);

/* Adds an interface, unless it is known already; removes one. */
void network_add(struct network* network, const char* name);
void network_remove(struct network* network, const char* name);

/* Compares with sysfs, after messages about interfaces were lost. */
void network_rescan(struct network* network);

/* Frees the record's memory. The context owns the objects and keeps them. */
void network_free(struct network* network);

#endif
