/*
 * Network adapters. nic.c finds the interfaces and sorts them into cards and ports: interfaces
 * whose driver gives the same physical port are the partitions of one port, any other interface is
 * a port with one partition. An InfiniBand interface is none of them, nor is one that belongs to a
 * virtual function or, unless nic_every_interface is set, is made of software alone.
 *
 * The files nic_*.c put the objects of an interface. The tag of a port, partition and connection is
 * the interface's number.
 */
#ifndef NIC_H
#define NIC_H

#include "card.h"
#include "object.h"
#include "rtnetlink.h"

extern bool nic_every_interface; /* $INVENTORYD_EVERY_INTERFACE */

struct nic_interface
{
    char* device; /* its directory */
    struct card card;
    bool has_link; /* a record may lack it */
    struct rtnetlink_link link;
    char port[64];         /* the same for the partitions of a port */
    unsigned int function; /* these two give the port its number */
    unsigned int port_of_function;
};

/* Follows what the kernel tells of interfaces; `changed` is called if a scan is needed for it.
 * Returns 0 or a negative errno. */
int nic_watch(sd_event* event, void (*changed)(void));

/* Has an interface read again by a scan. */
void nic_note(const char* device);

void nic_put_port(struct object* object, const struct nic_interface* interface);
void nic_put_partition(struct object* object, const struct nic_interface* interface);
void nic_put_connection(struct object* object, const struct nic_interface* interface);

/* These ask for the interface by the object's device; they change nothing else. */
void nic_put_port_counters(struct object* object);
void nic_put_partition_counters(struct object* object);

/* What follows from a change of the link. */
void nic_put_port_link(struct object* object, const struct rtnetlink_link* link);
void nic_put_partition_link(struct object* object, const struct rtnetlink_link* link);

/* For ports and partitions, which have the same values in properties of different names. */

struct nic_counter
{
    const char* member;
    object_put* put;
    size_t offset; /* of the counter in struct rtnl_link_stats64 */
};

void nic_put_counters(struct object* object, const struct rtnetlink_link* link,
                      const struct nic_counter* counters, size_t count);
void nic_put_link_status(struct object* object, const char* member,
                         const struct rtnetlink_link* link);
void nic_put_driver_state(struct object* object, const char* member, const char* device);

/* The present and the permanent address. */
void nic_put_addresses(struct object* object, const struct rtnetlink_link* link);

/* Puts a counter of data, which RDMA devices count in words of four bytes. */
object_put nic_put_words;

/* The counters of an RDMA device's port, which has this directory. */
void nic_put_rdma(struct object* object, const char* port);

/* The packets by kind, as far as the driver has standard statistics. `message` gets its answer. */
struct nic_packets
{
    uint64_t received_unicast;
    uint64_t received_multicast;
    uint64_t received_broadcast;
    uint64_t sent_unicast;
    uint64_t sent_multicast;
    uint64_t sent_broadcast;
};
bool nic_ask_packets(struct nic_packets* packets, const char* device,
                     union netlink_message* message);

/* Both are in seconds since the epoch: StatisticsTime is when a counter was found changed last, and
 * StatisticsStartTime when the counters were read first. Call it after the counters. */
void nic_put_statistics_times(struct object* object);

#endif
