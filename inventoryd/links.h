/*
 * Hot plug: the event loop receives the kernel's messages about network interfaces from a netlink
 * socket. A socket unit may pass in the socket (ListenNetlink=route 1), which then collects
 * messages while the host starts.
 */
#ifndef LINKS_H
#define LINKS_H

#include "network.h"

#include <systemd/sd-event.h>

/*
 * Watches as long as the loop exists. If called before the interfaces are first read, none is
 * missed: the loop handles the messages that the socket has collected. Returns 0 or a negative
 * errno.
 */
int links_watch(sd_event* event, struct network* network);

#endif
