/*
 * The three objects of a network interface: its port, the port's partition, which is its PCI
 * function, and its view of the link partner. `device` is its directory, such as class/net/eth0. A
 * publish function fills an object completely; a read function updates the values that change.
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

/* For ports and partitions, which have the same value in properties of different names. */
void nic_put_link_status(struct object* object, const char* member, const char* device);

/* False unless both counters exist and are consistent. */
bool nic_received_packets(const char* device, uint64_t* unicast, uint64_t* multicast);

/* Seconds since the epoch, in the 32 bits of the interfaces' properties. */
uint32_t nic_now(void);

#endif
