#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "links.h"

#include <errno.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

/* Handles one message. The sizes of messages and attributes must be checked here. */
static void on_message(struct network* network, const struct nlmsghdr* message)
{
    const char* bytes = (const char*)message;
    const struct ifinfomsg* link = NLMSG_DATA(message);
    size_t at = NLMSG_SPACE(sizeof *link);
    /* A bridge uses the same messages for its ports: a port that leaves it is still an interface.
     */
    if ((message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) ||
        message->nlmsg_len < at || link->ifi_family != AF_UNSPEC)
    {
        return;
    }
    while (message->nlmsg_len >= at + sizeof(struct rtattr))
    {
        const struct rtattr* attribute = (const void*)(bytes + at);
        if (attribute->rta_len < sizeof *attribute || attribute->rta_len > message->nlmsg_len - at)
        {
            return;
        }
        if (attribute->rta_type == IFLA_IFNAME)
        {
            char name[IF_NAMESIZE];
            snprintf(name, sizeof name, "%.*s", (int)RTA_PAYLOAD(attribute),
                     (const char*)RTA_DATA(attribute));
            (message->nlmsg_type == RTM_NEWLINK ? network_add : network_remove)(network, name);
            return;
        }
        at += RTA_ALIGN(attribute->rta_len);
    }
}

/* Handles one datagram per call, so that the bus is served in between. */
static int on_datagram(sd_event_source* source, int fd, uint32_t events, void* user_data)
{
    struct network* network = user_data;
    union
    {
        struct nlmsghdr header;
        char bytes[32768];
    } buffer;
    struct sockaddr_nl sender = {0};
    socklen_t sender_size = sizeof sender;
    (void)source, (void)events;

    /* MSG_TRUNC makes it return the whole size of the datagram. */
    const ssize_t received = recvfrom(fd, &buffer, sizeof buffer, MSG_DONTWAIT | MSG_TRUNC,
                                      (struct sockaddr*)&sender, &sender_size);
    if (received < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return 0;
    }
    /* Messages are lost if the socket's or this buffer is too small for them. */
    if ((received < 0 && errno == ENOBUFS) || received > (ssize_t)sizeof buffer)
    {
        network_rescan(network);
        return 0;
    }
    if (received < 0)
    {
        const int error = errno;
        fprintf(stderr, SD_ERR "netlink: %s\n", strerror(error));
        return -error; /* the event loop then disables this source */
    }
    const size_t size = sender.nl_pid == 0 ? (size_t)received : 0; /* only the kernel is trusted */
    for (size_t at = 0; size >= at + sizeof(struct nlmsghdr);)
    {
        const struct nlmsghdr* message = (const void*)(buffer.bytes + at);
        if (message->nlmsg_len < sizeof *message || message->nlmsg_len > size - at)
        {
            break;
        }
        on_message(network, message);
        at += NLMSG_ALIGN(message->nlmsg_len);
    }
    return 0;
}

static int open_socket(void)
{
    if (sd_listen_fds(1) > 0)
    {
        return SD_LISTEN_FDS_START;
    }
    const struct sockaddr_nl address = {.nl_family = AF_NETLINK, .nl_groups = RTMGRP_LINK};
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd >= 0 && bind(fd, (const struct sockaddr*)&address, sizeof address) < 0)
    {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

int links_watch(sd_event* event, struct network* network)
{
    sd_event_source* source = NULL;
    const int fd = open_socket();
    if (fd < 0)
    {
        return -errno;
    }
    int result = sd_event_add_io(event, &source, fd, EPOLLIN, on_datagram, network);
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
