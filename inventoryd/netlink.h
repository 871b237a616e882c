/*
 * A request to the kernel over netlink and its answer. Of a record, the answer is a file in the
 * directory of the device that was asked about. An answer isn't trusted: the functions below read
 * an attribute only as far as it is there.
 */
#ifndef NETLINK_H
#define NETLINK_H

#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* Room for each datagram that the kernel sends. */
union netlink_message
{
    struct nlmsghdr header;
    char bytes[32768];
};

/* Begins a request to NETLINK_ROUTE or, by its name, to a generic family. Of a record, these find
 * that each family is there. Attributes are added by mnl_attr_put_*. */
void netlink_begin(union netlink_message* message, uint16_t type, const void* header, size_t size);
bool netlink_begin_generic(union netlink_message* message, const char* family, uint8_t command);

/* Replaces the request by its answer, which `file` holds in a record of that device; a null file
 * isn't recorded. False if there is none, or an error; the message then has no attributes.
 * `protocol` is a NETLINK_*. */
bool netlink_ask(union netlink_message* message, int protocol, const char* device,
                 const char* file);

/* The attribute behind `each`, or the first one if that is null; null at the end. The first
 * function goes through a generic family's message, the second through another attribute. */
const struct nlattr* netlink_next(const union netlink_message* message, const struct nlattr* each);
const struct nlattr* netlink_next_in(const struct nlattr* within, const struct nlattr* each);

/* The first attribute of that type, or null: of a generic family's message, and in another
 * attribute, which may be null. */
const struct nlattr* netlink_find(const union netlink_message* message, unsigned int type);
const struct nlattr* netlink_find_in(const struct nlattr* within, unsigned int type);

/* The value of a number of 1, 2, 4 or 8 bytes, and of a text. False for a null attribute, and for
 * one of another size. */
bool netlink_number(const struct nlattr* attribute, uint64_t* number);
bool netlink_text(const struct nlattr* attribute, char* text, size_t size);

/* Closes the sockets. */
void netlink_close(void);

#endif
