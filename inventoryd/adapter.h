/*
 * Adapters of a family, such as those of Fibre Channel: a slot and a controller for each card, a
 * port for each of its ports, and a partition for each function of a port. The family's scan adds
 * what it finds, in any order, and adapter_scan makes the objects of it. They are named as card.h
 * says. What the families' interfaces have in common is put here, the rest by the family.
 */
#ifndef ADAPTER_H
#define ADAPTER_H

#include "card.h"

/* A port, or one of its partitions. */
struct adapter_port
{
    struct card card;    /* whose function has it */
    char* device;        /* its directory; empty for a function that has no port */
    char id[64];         /* the same for the partitions of a port; empty if it has no other */
    unsigned int number; /* among the ports of its function, from 0 */
    uint64_t tag;        /* of its objects */
};

struct adapter_family
{
    const char* prefix; /* of FQDDs */
    const char* title;  /* of names for people */
    /* The class and subclass of PCI functions that are adapters even without ports, and those of
     * exceptions. */
    unsigned int code;
    unsigned int other_code;
    /* Called with the card for each entry of this directory of a PCI function, to add its ports;
     * null if they are added before adapter_scan. */
    sysfs_visit* find_ports;
    const char* directory;
    void (*put_slot)(struct object* object, const struct adapter_port* first);
    void (*put_port)(struct object* object, const struct adapter_port* port);
    void (*put_partition)(struct object* object,
                          const struct adapter_port* partition); /* or null */
    /* Scans what else a port has, if the family has such a thing. */
    void (*scan_port)(const char* name, const struct adapter_port* port, bool is_due);
    struct kind slot;
    struct kind controller;
    struct kind port;
    struct kind partition;
};

void adapter_add(const struct adapter_port* port);
void adapter_scan(struct adapter_family* family);

/* The name of the driver that a port is bound to. */
bool adapter_find_driver(const struct adapter_port* port, char name[sysfs_path_size]);

/* Whether the function has RDMA, a thermal sensor and virtual functions. */
void adapter_put_capabilities(struct object* object, const struct adapter_port* port);

/* The counters of an RDMA device's port, which has this directory. */
void adapter_put_rdma(struct object* object, const char* port);

/* The state of a port's or a partition's link, whose code is a switch's. */
void adapter_put_link(struct object* object, bool is_known, bool is_up);

/*
 * Dumps of adapters (dump.c). A slot's method TriggerAdapterCoreDump has the driver make a dump of
 * its state, for those who develop it, as ethtool or else devlink's health reporters have it, and
 * answers when that is in a file. As a driver may take seconds, a process of its own asks it. One
 * dump runs at a time; another call is refused meanwhile, and so is one for an adapter whose driver
 * makes none. Only drivers of network adapters are asked.
 */
object_create dump_create_NicSlot;
object_create dump_create_FCSlot;
object_create dump_create_IBSlot;
void dump_put_slot(struct object* object, const struct card* card);

/* The interface and the creating function of a slot's kind, as DUMP_KIND(NicSlot). */
#define DUMP_KIND(name) .interface = "com.orvane.velmar.system." #name, .create = dump_create_##name

#endif
