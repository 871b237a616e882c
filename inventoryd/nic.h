/*
 * Network adapters. nic.c finds the interfaces: those whose driver gives the same physical port are
 * the partitions of one port, any other interface is a port with one partition. An InfiniBand
 * interface is none of them, nor is one that belongs to a virtual function or, unless
 * nic_every_interface is set, is made of software alone. nic_port.c puts their objects, of which
 * the tag is the interface's number.
 */
#ifndef NIC_H
#define NIC_H

#include "adapter.h"
#include "netlink.h"

extern bool nic_every_interface; /* $INVENTORYD_EVERY_INTERFACE */

void nic_put_port(struct object* object, const struct adapter_port* port);

/* Of a port or a partition. This asks for the interface by the object's device, and changes nothing
 * else. */
void nic_put_counters(struct object* object);

/* What follows from a change of the link: for a port or a partition, and for a port whose link has
 * changed. */
void nic_put_link(struct object* object, const struct rtnetlink_link* link);
void nic_put_settings(struct object* object);

/* The present and the permanent address. */
void nic_put_addresses(struct object* object, const struct rtnetlink_link* link);

/* What the port's link partner tells of itself. */
void nic_put_connection(struct object* object);

/*
 * The pluggable modules of network ports (modules.c): an SFP, QSFP or QSFPD for each, by the
 * standard that it follows, named like its port. As a module is slow to read, that is done together
 * with its port, which is due then, and for its readings once in half a minute. One that was pulled
 * is found by that; one that was plugged in is found when the link comes up.
 */
void modules_scan_port(const char* port, const char* device, uint64_t tag, bool is_due);

/* Whether a port, whose link has come up, may have a module that isn't known. */
bool modules_may_come(const struct object* port);

#endif
