/*
 * A network interface as the kernel describes it in a netlink message: the answer to a request for
 * it, which a record has in the file rtnetlink of the interface's directory, or a message about an
 * interface that appeared, changed or disappeared.
 */
#ifndef RTNETLINK_H
#define RTNETLINK_H

#include "netlink.h"

#include <linux/if_link.h>
#include <net/if.h>
#include <systemd/sd-event.h>

enum
{
    rtnetlink_most_address = 32
};

struct rtnetlink_address
{
    size_t size; /* 0 if the message has no such address */
    unsigned char bytes[rtnetlink_most_address];
};

struct rtnetlink_link
{
    bool removed;
    int index; /* the kernel's number, which a later interface of the same name doesn't have */
    char name[IF_NAMESIZE];
    unsigned short type; /* an ARPHRD_* */
    unsigned char state; /* an IF_OPER_* */
    bool has_state;
    struct rtnetlink_address address;
    struct rtnetlink_address permanent_address;
    bool has_counters;
    struct rtnl_link_stats64 counters;
};

/* Asks for the interface at this directory. */
bool rtnetlink_ask(struct rtnetlink_link* link, const char* device);

/* Calls `visit` for each message as long as the loop exists, and with null if messages were lost.
 * Returns 0 or a negative errno. */
int rtnetlink_watch(sd_event* event, void (*visit)(const struct rtnetlink_link* link));

#endif
