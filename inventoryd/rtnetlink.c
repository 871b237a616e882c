#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "rtnetlink.h"

#include "sysfs.h"

#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static void read_attribute(struct rtnetlink_link* link, const struct rtattr* attribute)
{
    const void* bytes = RTA_DATA(attribute);
    const size_t size = RTA_PAYLOAD(attribute);
    switch (attribute->rta_type)
    {
    case IFLA_IFNAME:
        snprintf(link->name, sizeof link->name, "%.*s", (int)size, (const char*)bytes);
        break;
    case IFLA_OPERSTATE:
        link->state = size > 0 ? *(const unsigned char*)bytes : 0;
        break;
    case IFLA_ADDRESS:
        link->address = (struct rtnetlink_address){bytes, size};
        break;
    case IFLA_PERM_ADDRESS:
        link->permanent_address = (struct rtnetlink_address){bytes, size};
        break;
    case IFLA_STATS64:
        /* An older kernel has fewer counters, a newer one more. */
        memcpy(&link->counters, bytes, size < sizeof link->counters ? size : sizeof link->counters);
        link->has_counters = true;
        break;
    default:
        break;
    }
}

/* `message` is complete. What it contains is read only as far as the sizes in it are right. */
static void read_message(const struct nlmsghdr* message, rtnetlink_visit* visit, void* data)
{
    const char* bytes = (const char*)message;
    const struct ifinfomsg* header = NLMSG_DATA(message);
    size_t at = NLMSG_SPACE(sizeof *header);
    struct rtnetlink_link link = {.removed = message->nlmsg_type == RTM_DELLINK};
    /* A bridge uses the same messages for its ports: a port that leaves it is still an interface.
     */
    if ((message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) ||
        message->nlmsg_len < at || header->ifi_family != AF_UNSPEC)
    {
        return;
    }
    link.index = header->ifi_index;
    link.type = header->ifi_type;
    while (message->nlmsg_len >= at + sizeof(struct rtattr))
    {
        const struct rtattr* attribute = (const void*)(bytes + at);
        if (attribute->rta_len < sizeof *attribute || attribute->rta_len > message->nlmsg_len - at)
        {
            break;
        }
        read_attribute(&link, attribute);
        at += RTA_ALIGN(attribute->rta_len);
    }
    if (link.name[0] != '\0')
    {
        visit(data, &link);
    }
}

enum rtnetlink_part rtnetlink_parse(const union rtnetlink_datagram* datagram, size_t size,
                                    rtnetlink_visit* visit, void* data)
{
    for (size_t at = 0; size >= at + sizeof(struct nlmsghdr);)
    {
        const struct nlmsghdr* message = (const void*)(datagram->bytes + at);
        if (message->nlmsg_len < sizeof *message || message->nlmsg_len > size - at ||
            message->nlmsg_type == NLMSG_ERROR || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0)
        {
            return rtnetlink_failed;
        }
        if (message->nlmsg_type == NLMSG_DONE)
        {
            return rtnetlink_last;
        }
        read_message(message, visit, data);
        at += NLMSG_ALIGN(message->nlmsg_len);
    }
    return rtnetlink_more;
}

/* A socket on which all interfaces were asked for, or a negative number. As it is connected to the
 * kernel, no other process can send to it. */
static int ask(void)
{
    const struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    const struct
    {
        struct nlmsghdr header;
        struct ifinfomsg link;
    } request = {
        {.nlmsg_len = sizeof request,
         .nlmsg_type = RTM_GETLINK,
         .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP},
        {.ifi_family = AF_UNSPEC},
    };
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd >= 0 && (connect(fd, (const struct sockaddr*)&kernel, sizeof kernel) < 0 ||
                    send(fd, &request, sizeof request, 0) < 0))
    {
        close(fd);
        return -1;
    }
    return fd;
}

bool rtnetlink_each(const char* sys, rtnetlink_visit* visit, void* data)
{
    union rtnetlink_datagram datagram;
    if (sysfs_is_recorded(sys))
    {
        const size_t size = sysfs_bytes(sys, "rtnetlink", &datagram, sizeof datagram);
        return rtnetlink_parse(&datagram, size, visit, data) != rtnetlink_failed;
    }
    const int fd = ask();
    if (fd < 0)
    {
        return false;
    }
    enum rtnetlink_part part = rtnetlink_more;
    while (part == rtnetlink_more)
    {
        /* The kernel makes the answer as it is read, so there is nothing to wait for. */
        const ssize_t size = recv(fd, &datagram, sizeof datagram, MSG_DONTWAIT);
        part = size <= 0 ? rtnetlink_failed : rtnetlink_parse(&datagram, (size_t)size, visit, data);
    }
    close(fd);
    return part == rtnetlink_last;
}
