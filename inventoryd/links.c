#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "links.h"

#include <errno.h>
#include <linux/rtnetlink.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

static void on_link(void* network, const struct rtnetlink_link* link)
{
    network_update(network, link);
}

/* Handles one datagram per call, so that the bus is served in between. */
static int on_datagram(sd_event_source* source, int fd, uint32_t events, void* user_data)
{
    struct network* network = user_data;
    union rtnetlink_datagram buffer;
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
    /* Messages are lost if the socket's or this buffer is too small for them. The next refresh
     * finds what they told. */
    if ((received < 0 && errno == ENOBUFS) || received > (ssize_t)sizeof buffer)
    {
        return 0;
    }
    if (received < 0)
    {
        const int error = errno;
        fprintf(stderr, SD_ERR "netlink: %s\n", strerror(error));
        return -error; /* the event loop then disables this source */
    }
    if (sender.nl_pid == 0) /* only the kernel is trusted */
    {
        rtnetlink_parse(&buffer, (size_t)received, on_link, network);
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
