/*
 * The machine's network interfaces: the three objects of each (nic.h), and one NicController that
 * counts them. They come and go, and their counters run: the host says when to look again.
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
    bool announces; /* once all that was there at first is published */
};

/* Publishes what the directory `sys` shows. The record must outlive the dispatch loop. */
void network_publish(struct network* network, GANTRY_cpp_context* context, const char* sys);

/* Reads the changing values again, and announces what differs: in one signal for each object. */
void network_refresh(struct network* network);

/* An interface came, or is known already; or it went. */
void network_add(struct network* network, const char* name);
void network_remove(struct network* network, const char* name);

/* Looks for what came and went, when nobody can tell. */
void network_rescan(struct network* network);

/* Forgets all. The objects are the context's, and stay. */
void network_free(struct network* network);

#endif
