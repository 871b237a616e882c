/*
 * Requests to the kernel over netlink and their answers (netlink.c), and what is asked: the driver
 * of a network interface (ethtool.c) or of a PCI function (devlink.c), and the interface itself
 * (rtnetlink.c). `device` is the directory of what is asked about, mostly the interface's, such as
 * /sys/devices/pci0000:00/0000:00:03.0/net/eth0. Of a record, an answer is a file in that directory
 * (sysfs.h). It isn't trusted: the functions below read an attribute only as far as it is there.
 */
#ifndef NETLINK_H
#define NETLINK_H

#include "sysfs.h"

#include <libmnl/libmnl.h>
#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <stdio.h>
#include <systemd/sd-event.h>

/* Room for each datagram that the kernel sends. */
union netlink_message
{
    struct nlmsghdr header;
    char bytes[32768];
};

struct netlink_family
{
    const char* name;
    uint64_t number; /* which the kernel tells; 0 if it isn't known yet */
};

/* Begins a request to NETLINK_ROUTE or to a generic family. Of a record, each family is there.
 * Attributes are added by mnl_attr_put_*. */
void netlink_begin(union netlink_message* message, uint16_t type, const void* header, size_t size);
bool netlink_begin_generic(union netlink_message* message, struct netlink_family* family,
                           uint8_t command);

/* Replaces the request by its answer, which `file` holds in a record of that device; a null file
 * isn't recorded. False if there is none, or an error; the message then has no attributes.
 * `protocol` is a NETLINK_*. */
bool netlink_ask(union netlink_message* message, int protocol, const char* device,
                 const char* file);

/* Asks a generic family for a list, and calls `visit` for each of its messages; false if the list
 * isn't whole. The request is overwritten. A record has a file for each datagram of the answer:
 * `file` with -0, -1 and so on. */
typedef void netlink_visit(void* data, const union netlink_message* message);
bool netlink_ask_list(union netlink_message* message, const char* device, const char* file,
                      netlink_visit* visit, void* data);

/* To be called first by a process that was forked and asks: its sockets are its parent's, which
 * would miss an answer. */
void netlink_close(void);

/* Whether the bytes begin with a whole message. mnl_nlmsg_ok takes a length above INT_MAX as a
 * negative one, and so as small enough. */
bool netlink_is_message(const struct nlmsghdr* header, ssize_t size);

/* The attribute behind `each`, or the first one if that is null; null at the end. The first
 * function goes through a message behind the family's header, the second through another attribute,
 * which may be null. */
const struct nlattr* netlink_next(const struct nlmsghdr* message, size_t header,
                                  const struct nlattr* each);
const struct nlattr* netlink_next_in(const struct nlattr* within, const struct nlattr* each);
#define NETLINK_NEXT(message, each)                                                                \
    netlink_next(&(message)->header, sizeof(struct genlmsghdr), each)

/* The first attribute of that type, or null: of a generic family's message, and in another
 * attribute, which may be null. */
const struct nlattr* netlink_find(const union netlink_message* message, unsigned int type);
const struct nlattr* netlink_find_in(const struct nlattr* within, unsigned int type);

/* The value of a number of 1, 2, 4 or 8 bytes, and of a text. False for a null attribute, and for
 * one of another size. */
bool netlink_number(const struct nlattr* attribute, uint64_t* number);
bool netlink_text(const struct nlattr* attribute, char* text, size_t size);

/* Asks with an ETHTOOL_MSG_*_GET. False if the driver has no
 * answer, or none for this process; the message then has no attributes. */
bool ethtool_ask(union netlink_message* message, const char* device, uint8_t command);

/* A counter of a group of standard statistics, an ETHTOOL_STATS_*, in the answer to
 * ETHTOOL_MSG_STATS_GET. */
bool ethtool_statistic(const union netlink_message* message, unsigned int group, unsigned int id,
                       uint64_t* number);

/* Whether the bit of that name is set in a bit set of an answer. */
bool ethtool_has_bit(const struct nlattr* set, const char* name);

/* Half a page of the EEPROM of the interface's module, 128 bytes, by the name of its file in a
 * record, module/50-00-03-80: I2C address 0x50 or 0x51, bank, page, and offset 0 or 128. The lower
 * half of each page is page 0 at offset 0. It isn't recorded here. */
enum
{
    ethtool_page_size = 128
};
bool ethtool_read_page(const char* device, const char* file, uint8_t bytes[ethtool_page_size]);

/* For a request of linux/ethtool.h that has no other form. It begins with its number, and the
 * answer overwrites it. */
bool ethtool_ask_ioctl(const char* device, void* request, size_t size);

/* Begins a request about a PCI function, a DEVLINK_CMD_*. */
bool devlink_begin(union netlink_message* message, const char* function, uint8_t command);

/* Writes the dumps of the function's health reporters as text, and returns whether one was written
 * whole; if the file is null, whether there is a reporter that makes dumps. */
bool devlink_dump(const char* function, FILE* file);

/* Up to 32 bytes, two digits each, with colons between; empty if there is none. */
typedef char rtnetlink_address[3 * 32];

/* A network interface as a message describes it: the answer to a request for it, or one about an
 * interface that appeared, changed or disappeared. */
struct rtnetlink_link
{
    bool removed;
    int index; /* the kernel's number, which a later interface of the same name doesn't have */
    char name[IF_NAMESIZE];
    unsigned char state; /* an IF_OPER_* */
    rtnetlink_address address;
    rtnetlink_address permanent_address;
    bool has_counters;
    struct rtnl_link_stats64 counters;
};

bool rtnetlink_ask(struct rtnetlink_link* link, const char* device);

/* Calls `visit` for each message as long as the loop exists, and with null if messages were lost.
 * Returns 0 or a negative errno. */
int rtnetlink_watch(sd_event* event, void (*visit)(const struct rtnetlink_link* link));

#endif
