#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "netlink.h"

#include <errno.h>
#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <systemd/sd-daemon.h>

static void read_address(rtnetlink_address address, const struct nlattr* attribute)
{
    const unsigned char* bytes = mnl_attr_get_payload(attribute);
    const size_t size = mnl_attr_get_payload_len(attribute);
    for (size_t i = 0; i < size && 3 * i < sizeof(rtnetlink_address); ++i)
    {
        snprintf(address + 3 * i, 3, "%02x", bytes[i]);
        if (i > 0)
        {
            address[3 * i - 1] = ':';
        }
    }
}

/* False for a message about something else. A bridge uses the same messages for its ports: a port
 * that leaves it is still an interface. */
static bool read_message(struct rtnetlink_link* link, const struct nlmsghdr* message)
{
    const struct ifinfomsg* header = mnl_nlmsg_get_payload(message);
    memset(link, 0, sizeof *link);
    if ((message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) ||
        mnl_nlmsg_get_payload_len(message) < sizeof *header || header->ifi_family != AF_UNSPEC)
    {
        return false;
    }
    link->removed = message->nlmsg_type == RTM_DELLINK;
    link->index = header->ifi_index;
    const struct nlattr* each = NULL;
    while ((each = netlink_next(message, sizeof *header, each)) != NULL)
    {
        const size_t size = mnl_attr_get_payload_len(each);
        switch (mnl_attr_get_type(each))
        {
        case IFLA_IFNAME:
            (void)netlink_text(each, link->name, sizeof link->name);
            break;
        case IFLA_OPERSTATE:
            link->state = size == 1 ? mnl_attr_get_u8(each) : 0;
            break;
        case IFLA_ADDRESS:
            read_address(link->address, each);
            break;
        case IFLA_PERM_ADDRESS:
            read_address(link->permanent_address, each);
            break;
        case IFLA_STATS64:
            /* An older kernel has fewer counters, a newer one more. */
            memcpy(&link->counters, mnl_attr_get_payload(each),
                   size < sizeof link->counters ? size : sizeof link->counters);
            link->has_counters = true;
            break;
        default:
            break;
        }
    }
    return link->name[0] != '\0';
}

bool rtnetlink_ask(struct rtnetlink_link* link, const char* device)
{
    static const struct ifinfomsg all = {.ifi_family = AF_UNSPEC};
    union netlink_message message;
    netlink_begin(&message, RTM_GETLINK, &all, sizeof all);
    mnl_attr_put_strz(&message.header, IFLA_IFNAME, sysfs_name(device));
    memset(link, 0, sizeof *link);
    return netlink_ask(&message, NETLINK_ROUTE, device, "rtnetlink") &&
           read_message(link, &message.header) && !link->removed;
}

static void (*on_link)(const struct rtnetlink_link* link);

/* Handles one datagram per call, so that the bus is served in between. */
static int on_datagram(sd_event_source* source, int fd, uint32_t events, void* data)
{
    union netlink_message buffer;
    struct sockaddr_nl sender = {0};
    socklen_t sender_size = sizeof sender;
    struct rtnetlink_link link;
    (void)source, (void)events, (void)data;

    /* MSG_TRUNC makes it return the whole size of the datagram. */
    const ssize_t received = recvfrom(fd, &buffer, sizeof buffer, MSG_DONTWAIT | MSG_TRUNC,
                                      (struct sockaddr*)&sender, &sender_size);
    if (received < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return 0;
    }
    if ((received < 0 && errno == ENOBUFS) || received > (ssize_t)sizeof buffer)
    {
        on_link(NULL);
        return 0;
    }
    if (received < 0)
    {
        const int error = errno;
        fprintf(stderr, SD_ERR "netlink: %s\n", strerror(error));
        return -error; /* the event loop then disables this source */
    }
    int rest = (int)received;
    const struct nlmsghdr* message = &buffer.header;
    while (sender.nl_pid == 0 && netlink_is_message(message, rest)) /* only the kernel is trusted */
    {
        if (read_message(&link, message))
        {
            on_link(&link);
        }
        message = mnl_nlmsg_next(message, &rest);
    }
    return 0;
}

int rtnetlink_watch(sd_event* event, void (*visit)(const struct rtnetlink_link* link))
{
    /* The socket stays as long as the process, and its source as long as the loop. */
    static struct mnl_socket* socket;
    socket = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    on_link = visit;
    return socket == NULL || mnl_socket_bind(socket, RTMGRP_LINK, MNL_SOCKET_AUTOPID) < 0
               ? -errno
               : sd_event_add_io(event, NULL, mnl_socket_get_fd(socket), EPOLLIN, on_datagram,
                                 NULL);
}
