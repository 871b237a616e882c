/*
 * Hot plug: the kernel's word on network interfaces that come and go, from a netlink socket on the
 * event loop. A socket unit may hand the socket over (ListenNetlink=route 1), so that it collects
 * messages while the host starts.
 */
#ifndef LINKS_H
#define LINKS_H

#include "network.h"

#include <systemd/sd-event.h>

/*
 * Watches for the loop's lifetime. Begin before the interfaces are first looked at, and none is
 * missed: what the socket holds is acted on in the loop. Returns 0 or a negative errno.
 */
int links_watch(sd_event* event, struct network* network);

#endif
