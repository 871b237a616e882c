#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "rtnetlink.h"

#include "devices.h"

#include <errno.h>
#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

static void copy_address(struct rtnetlink_address* address, const struct nlattr* attribute)
{
    const size_t size = mnl_attr_get_payload_len(attribute);
    address->size = size < sizeof address->bytes ? size : sizeof address->bytes;
    memcpy(address->bytes, mnl_attr_get_payload(attribute), address->size);
}

static void read_attribute(struct rtnetlink_link* link, const struct nlattr* attribute)
{
    const void* bytes = mnl_attr_get_payload(attribute);
    const size_t size = mnl_attr_get_payload_len(attribute);
    switch (mnl_attr_get_type(attribute))
    {
    case IFLA_IFNAME:
        (void)netlink_text(attribute, link->name, sizeof link->name);
        break;
    case IFLA_OPERSTATE:
        link->has_state = size == sizeof link->state;
        link->state = link->has_state ? *(const unsigned char*)bytes : 0;
        break;
    case IFLA_ADDRESS:
        copy_address(&link->address, attribute);
        break;
    case IFLA_PERM_ADDRESS:
        copy_address(&link->permanent_address, attribute);
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
    link->type = header->ifi_type;
    const char* end = (const char*)message + message->nlmsg_len;
    for (const struct nlattr* each = mnl_nlmsg_get_payload_offset(message, sizeof *header);
         (const char*)each < end && mnl_attr_ok(each, (int)(end - (const char*)each));
         each = mnl_attr_next(each))
    {
        read_attribute(link, each);
    }
    return link->name[0] != '\0';
}

bool rtnetlink_ask(struct rtnetlink_link* link, const char* device)
{
    static const struct ifinfomsg all = {.ifi_family = AF_UNSPEC};
    union netlink_message message;
    netlink_begin(&message, RTM_GETLINK, &all, sizeof all);
    mnl_attr_put_strz(&message.header, IFLA_IFNAME, devices_name(device));
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
    while (sender.nl_pid == 0 && mnl_nlmsg_ok(message, rest)) /* only the kernel is trusted */
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
    const struct sockaddr_nl address = {.nl_family = AF_NETLINK, .nl_groups = RTMGRP_LINK};
    sd_event_source* source = NULL;
    on_link = visit;
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    int result = fd < 0 || bind(fd, (const struct sockaddr*)&address, sizeof address) < 0
                     ? -errno
                     : sd_event_add_io(event, &source, fd, EPOLLIN, on_datagram, NULL);
    if (result < 0)
    {
        close(fd);
        return result;
    }
    sd_event_source_set_io_fd_own(source, 1);
    /* From here on the loop owns the source. */
    sd_event_source_set_floating(source, 1);
    sd_event_source_unref(source);
    return 0;
}
