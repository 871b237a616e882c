/*
 * What the driver of a network interface answers to the requests of linux/ethtool.h. `device` is
 * the interface's directory, such as class/net/eth0. The answers for a recorded tree
 * (sysfs_is_recorded) are in the directory's files `ethtool/N`, where N is the number of the
 * request.
 */
#ifndef ETHTOOL_H
#define ETHTOOL_H

#include <linux/ethtool.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum
{
    ethtool_most_words = 127, /* of a set of link modes; their count is a signed byte */
    ethtool_link_words = sizeof(struct ethtool_link_settings) / 4 + (size_t)3 * ethtool_most_words
};

/* The answer about a link: its settings, and then three sets of link modes of equal size. */
union ethtool_link
{
    struct ethtool_link_settings settings;
    uint32_t words[ethtool_link_words];
};

enum ethtool_modes
{
    ethtool_supported,
    ethtool_advertised,
    ethtool_partner /* what the link partner advertises */
};

/* Must be called before the first request. `sys` is a mounted sysfs or a recorded tree. */
void ethtool_open(const char* sys);

/* The request begins with its number, and the answer overwrites it. False if the driver has no
 * answer, or none for this process. */
bool ethtool_ask(const char* device, void* request, size_t size);

/* The texts are empty if there is no answer. */
struct ethtool_drvinfo ethtool_ask_driver(const char* device);

/* All zero, and so without a link mode, if there is no answer. */
bool ethtool_ask_link(const char* device, union ethtool_link* link);

/* Whether the link mode, an ETHTOOL_LINK_MODE_*_BIT, is one of those. */
bool ethtool_has_mode(const union ethtool_link* link, enum ethtool_modes modes, unsigned int bit);

#endif
