/*
 * Adapters whose ports aren't network interfaces, those of Fibre Channel and of InfiniBand: a slot
 * and a controller for each card, and a port with one partition for each port of its functions. The
 * FQDDs are made as those of network adapters (card.h).
 */
#ifndef ADAPTER_H
#define ADAPTER_H

#include "card.h"

struct adapter_scan;

struct adapter_family
{
    const char* prefix;          /* of FQDDs */
    const char* title;           /* of names for people */
    unsigned int code;           /* the class and subclass of PCI functions without ports */
    const char* partition_count; /* the property of a port */
    void (*find_ports)(struct adapter_scan* scan, const char* function);
    /* `port` is the directory of the card's first port, or empty. */
    void (*put_slot)(struct object* object, const struct card* card, const char* port,
                     unsigned int ports);
    /* The object's device is the port's directory, and its tag the port's number. */
    void (*put_port)(struct object* object, const struct card* card);
    void (*put_partition)(struct object* object, const struct card* card);
    struct kind slot;
    struct kind controller;
    struct kind port;
    struct kind partition;
};

void adapter_scan(struct adapter_family* family);

/* For find_ports: a port with its number among those of the function, from 1. */
void adapter_found(struct adapter_scan* scan, const char* port, unsigned int number);

/* This host's codes of a port's link and of its driver. */
enum
{
    adapter_link_up = 1,
    adapter_link_down = 2,
    adapter_driver_bound = 1
};

/* Stores a counter for which the property has 32 bits. One that is larger stays at the largest
 * number; one with all 64 bits set isn't counted by the adapter. */
object_put adapter_put_counter;

#endif
