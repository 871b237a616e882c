/*
 * The three objects of a network interface: its port, the port's partition, which is its PCI
 * function, and its view of the link partner. `device` is its directory, such as class/net/eth0,
 * and `link` what the kernel tells of it now. A publish function fills an object completely; a read
 * function updates the values that change.
 */
#ifndef NIC_H
#define NIC_H

#include "object.h"
#include "rtnetlink.h"

/* A NicPort: link state, capabilities and counters. */
bool nic_port_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                      const struct rtnetlink_link* link);
void nic_port_read(struct object* object, const char* device, const struct rtnetlink_link* link);

/* A NicPartition: addresses, PCI location and driver, link state and counters. */
bool nic_partition_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                           const struct rtnetlink_link* link);
void nic_partition_read(struct object* object, const char* device,
                        const struct rtnetlink_link* link);

/* A NicConnectionView: if the interface is a port of a bridge, the designated bridge and port that
 * the spanning tree protocol found on its link. */
bool nic_connection_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                            const struct rtnetlink_link* link);
void nic_connection_read(struct object* object, const char* device);

/* For ports and partitions, which have the same values in properties of different names. */

struct nic_counter
{
    const char* member;
    object_put* put;
    size_t offset; /* of the counter in struct rtnl_link_stats64 */
};

void nic_put_counters(struct object* object, const struct rtnetlink_link* link,
                      const struct nic_counter* counters, size_t count);

/* Stores the present time, in seconds since the epoch, if the object has changed since its last
 * announcement. Otherwise the time alone would announce the object once a second. */
void nic_put_statistics_time(struct object* object);

void nic_put_link_status(struct object* object, const char* member,
                         const struct rtnetlink_link* link);
void nic_put_driver_state(struct object* object, const char* member, const char* device);

#endif
