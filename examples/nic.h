/*
 * The three objects of a network interface: its port, the port's partition, which is what its PCI
 * function shows, and its view of the other end. `device` is its directory, class/net/eth0. A
 * publishing function fills an object for good; a reading one brings what changes up to date.
 */
#ifndef NIC_H
#define NIC_H

#include "object.h"

/* A NicPort: link state and counters. */
bool nic_port_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                      const char* name);
void nic_port_read(struct object* object, const char* device);

/* A NicPartition: addresses, PCI location and driver, link state and counters. */
bool nic_partition_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                           const char* name);
void nic_partition_read(struct object* object, const char* device);

/* A NicConnectionView: the bridge that the kernel's spanning tree protocol found. */
bool nic_connection_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                            const char* name);
void nic_connection_read(struct object* object, const char* device);

/* What ports and partitions say alike, each under a name of its own. */
void nic_put_link_status(struct object* object, const char* member, const char* device);

/* False unless both counters are there and fit each other. */
bool nic_received_packets(const char* device, uint64_t* unicast, uint64_t* multicast);

/* Seconds since the epoch, in the 32 bits that the interfaces have. */
uint32_t nic_now(void);

#endif
