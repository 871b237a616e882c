/*
 * The network interfaces as the kernel describes them in netlink messages: all in the answer to one
 * request, and one in each message about an interface that appeared, changed or disappeared.
 */
#ifndef RTNETLINK_H
#define RTNETLINK_H

#include <linux/if_link.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <stdbool.h>
#include <stddef.h>

/* Room for each datagram that the kernel sends. */
union rtnetlink_datagram
{
    struct nlmsghdr first;
    char bytes[32768];
};

/* Bytes in the datagram; of size 0 if the message has no such address. */
struct rtnetlink_address
{
    const unsigned char* bytes;
    size_t size;
};

struct rtnetlink_link
{
    bool removed;
    int index; /* the kernel's number, which a later interface of the same name doesn't have */
    char name[IF_NAMESIZE];
    unsigned short type; /* an ARPHRD_* */
    unsigned char state; /* an IF_OPER_* */
    struct rtnetlink_address address;
    struct rtnetlink_address permanent_address;
    bool has_counters;
    struct rtnl_link_stats64 counters;
};

typedef void rtnetlink_visit(void* data, const struct rtnetlink_link* link);

enum rtnetlink_part
{
    rtnetlink_more, /* another datagram of the answer follows; or this was no answer */
    rtnetlink_last,
    rtnetlink_failed /* malformed, an error, or the interfaces changed meanwhile */
};

/* Calls `visit` for each message about an interface in a datagram of `size` bytes. */
enum rtnetlink_part rtnetlink_parse(const union rtnetlink_datagram* datagram, size_t size,
                                    rtnetlink_visit* visit, void* data);

/*
 * Calls `visit` for each interface that there is. False if the answer was incomplete. The answer
 * for a recorded tree (sysfs_is_recorded) is in its file `rtnetlink`.
 */
bool rtnetlink_each(const char* sys, rtnetlink_visit* visit, void* data);

#endif
