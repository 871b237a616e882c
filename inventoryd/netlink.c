#define _GNU_SOURCE /* SOCK_CLOEXEC and what netlink's headers need */

#include "netlink.h"

#include <stdio.h>
#include <string.h>

/* Opened at their first use, for as long as the process runs. */
static struct mnl_socket* sockets[2];

void netlink_begin(union netlink_message* message, uint16_t type, const void* header, size_t size)
{
    mnl_nlmsg_put_header(message);
    message->header.nlmsg_type = type;
    message->header.nlmsg_flags = NLM_F_REQUEST;
    memcpy(mnl_nlmsg_put_extra_header(&message->header, size), header, size);
}

bool netlink_is_message(const struct nlmsghdr* header, ssize_t size)
{
    return size >= (ssize_t)sizeof *header && header->nlmsg_len >= sizeof *header &&
           header->nlmsg_len <= (size_t)size;
}

/* Replaces the request by its answer. */
static bool ask_kernel(union netlink_message* message, int protocol)
{
    static uint32_t sequence;
    struct mnl_socket** socket = &sockets[protocol == NETLINK_GENERIC ? 1 : 0];
    if (*socket == NULL && ((*socket = mnl_socket_open2(protocol, SOCK_CLOEXEC)) == NULL ||
                            mnl_socket_bind(*socket, 0, MNL_SOCKET_AUTOPID) < 0))
    {
        return false;
    }
    message->header.nlmsg_seq = ++sequence;
    if (mnl_socket_sendto(*socket, message, message->header.nlmsg_len) < 0)
    {
        return false;
    }
    /* The kernel answers before sendto returns. What is left of a former request is dropped. */
    ssize_t size = 0;
    do
    {
        size = recv(mnl_socket_get_fd(*socket), message, sizeof *message, MSG_DONTWAIT);
    } while (size >= (ssize_t)sizeof message->header && message->header.nlmsg_seq != sequence);
    return netlink_is_message(&message->header, size) &&
           message->header.nlmsg_type >= NLMSG_MIN_TYPE;
}

bool netlink_begin_generic(union netlink_message* message, struct netlink_family* family,
                           uint8_t command)
{
    struct genlmsghdr header = {.cmd = CTRL_CMD_GETFAMILY, .version = 1};
    if (family->number == 0 && !sysfs_is_recorded())
    {
        netlink_begin(message, GENL_ID_CTRL, &header, sizeof header);
        mnl_attr_put_strz(&message->header, CTRL_ATTR_FAMILY_NAME, family->name);
        if (!ask_kernel(message, NETLINK_GENERIC) ||
            !netlink_number(netlink_find(message, CTRL_ATTR_FAMILY_ID), &family->number))
        {
            message->header.nlmsg_len = 0;
            return false;
        }
    }
    header.cmd = command;
    netlink_begin(message, (uint16_t)family->number, &header, sizeof header);
    return true;
}

bool netlink_ask(union netlink_message* message, int protocol, const char* device, const char* file)
{
    bool is_answered = false;
    if (sysfs_is_recorded())
    {
        const size_t size = sysfs_bytes(device, file, message, sizeof *message);
        is_answered = netlink_is_message(&message->header, (ssize_t)size);
    }
    else if ((is_answered = ask_kernel(message, protocol)) && file != NULL)
    {
        record_answer(device, file, message, message->header.nlmsg_len);
    }
    message->header.nlmsg_len = is_answered ? message->header.nlmsg_len : 0;
    return is_answered;
}

void netlink_close(void)
{
    for (int i = 0; i < 2; ++i)
    {
        if (sockets[i] != NULL)
        {
            mnl_socket_close(sockets[i]);
            sockets[i] = NULL;
        }
    }
}

/* The socket is the list's own, as `visit` may ask for another list, and as one that isn't read to
 * its end leaves the rest there. */
bool netlink_ask_list(union netlink_message* message, const char* device, const char* file,
                      netlink_visit* visit, void* data)
{
    const bool is_recorded = sysfs_is_recorded();
    struct mnl_socket* socket =
        is_recorded ? NULL : mnl_socket_open2(NETLINK_GENERIC, SOCK_CLOEXEC);
    bool is_whole = false;
    message->header.nlmsg_flags |= NLM_F_DUMP;
    bool goes_on =
        is_recorded || (socket != NULL && mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) >= 0 &&
                        mnl_socket_sendto(socket, message, message->header.nlmsg_len) > 0);
    for (unsigned int part = 0; goes_on; ++part)
    {
        char name[128];
        snprintf(name, sizeof name, "%s-%u", file, part);
        int size = is_recorded ? (int)sysfs_bytes(device, name, message, sizeof *message)
                               : (int)recv(mnl_socket_get_fd(socket), message, sizeof *message,
                                           MSG_DONTWAIT);
        goes_on = size > 0;
        if (goes_on)
        {
            record_answer(device, name, message, (size_t)size);
        }
        for (const struct nlmsghdr* each = &message->header;
             goes_on && netlink_is_message(each, size); each = mnl_nlmsg_next(each, &size))
        {
            const int* error = mnl_nlmsg_get_payload(each);
            goes_on = each->nlmsg_type >= NLMSG_MIN_TYPE;
            is_whole = each->nlmsg_type == NLMSG_DONE &&
                       mnl_nlmsg_get_payload_len(each) >= sizeof *error && *error == 0;
            if (goes_on)
            {
                visit(data, (const union netlink_message*)each);
            }
        }
    }
    if (socket != NULL)
    {
        mnl_socket_close(socket);
    }
    return is_whole;
}

/* The attribute at `at`, if a whole one is there before the end. */
static const struct nlattr* attribute_at(const void* at, const void* end)
{
    return mnl_attr_ok(at, (int)((const char*)end - (const char*)at)) ? at : NULL;
}

const struct nlattr* netlink_next(const struct nlmsghdr* message, size_t header,
                                  const struct nlattr* each)
{
    return attribute_at(each == NULL ? mnl_nlmsg_get_payload_offset(message, header)
                                     : (const void*)mnl_attr_next(each),
                        (const char*)message + message->nlmsg_len);
}

const struct nlattr* netlink_next_in(const struct nlattr* within, const struct nlattr* each)
{
    if (within == NULL)
    {
        return NULL;
    }
    const char* first = mnl_attr_get_payload(within);
    return attribute_at(each == NULL ? (const void*)first : mnl_attr_next(each),
                        first + mnl_attr_get_payload_len(within));
}

const struct nlattr* netlink_find(const union netlink_message* message, unsigned int type)
{
    const struct nlattr* each = NULL;
    while ((each = NETLINK_NEXT(message, each)) != NULL && mnl_attr_get_type(each) != type)
    {
    }
    return each;
}

const struct nlattr* netlink_find_in(const struct nlattr* within, unsigned int type)
{
    const struct nlattr* each = NULL;
    while ((each = netlink_next_in(within, each)) != NULL && mnl_attr_get_type(each) != type)
    {
    }
    return each;
}

bool netlink_number(const struct nlattr* attribute, uint64_t* number)
{
    const size_t size = attribute != NULL ? mnl_attr_get_payload_len(attribute) : 0;
    if (size != 1 && size != 2 && size != 4 && size != 8)
    {
        return false;
    }
    *number = size == 1   ? mnl_attr_get_u8(attribute)
              : size == 2 ? mnl_attr_get_u16(attribute)
              : size == 4 ? mnl_attr_get_u32(attribute)
                          : mnl_attr_get_u64(attribute);
    return true;
}

bool netlink_text(const struct nlattr* attribute, char* text, size_t size)
{
    if (attribute == NULL)
    {
        return false;
    }
    snprintf(text, size, "%.*s", (int)mnl_attr_get_payload_len(attribute),
             (const char*)mnl_attr_get_payload(attribute));
    return true;
}
