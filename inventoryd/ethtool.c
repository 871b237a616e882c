#define _GNU_SOURCE /* SOCK_CLOEXEC and struct ifreq */

#include "ethtool.h"

#include "sysfs.h"

#include <linux/sockios.h>
#include <net/if.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

static int fd = -1; /* for as long as the process runs; negative for a recorded tree */

void ethtool_open(const char* sys)
{
    /* The kernel takes these requests on a socket of any family. */
    fd = sysfs_is_recorded(sys) ? -1 : socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

bool ethtool_ask(const char* device, void* request, size_t size)
{
    if (fd < 0)
    {
        char file[sizeof "ethtool/4294967295"];
        snprintf(file, sizeof file, "ethtool/%u", *(const unsigned int*)request);
        return sysfs_bytes(device, file, request, size) == size;
    }
    struct ifreq parameter = {.ifr_data = request};
    snprintf(parameter.ifr_name, sizeof parameter.ifr_name, "%s", strrchr(device, '/') + 1);
    return ioctl(fd, SIOCETHTOOL, &parameter) == 0;
}

struct ethtool_drvinfo ethtool_ask_driver(const char* device)
{
    static const struct ethtool_drvinfo none;
    struct ethtool_drvinfo driver = {.cmd = ETHTOOL_GDRVINFO};
    if (!ethtool_ask(device, &driver, sizeof driver))
    {
        return none;
    }
    driver.version[sizeof driver.version - 1] = '\0';
    driver.fw_version[sizeof driver.fw_version - 1] = '\0';
    driver.erom_version[sizeof driver.erom_version - 1] = '\0';
    driver.bus_info[sizeof driver.bus_info - 1] = '\0';
    return driver;
}

bool ethtool_ask_link(const char* device, union ethtool_link* link)
{
    struct ethtool_link_settings* settings = &link->settings;
    memset(link, 0, sizeof *link);
    settings->cmd = ETHTOOL_GLINKSETTINGS;
    if (ethtool_ask(device, link, sizeof *settings))
    {
        /* The kernel answers only a request with its own size of a set. It tells that size to any
         * other request, as a negative number. */
        const int words = abs(settings->link_mode_masks_nwords);
        settings->link_mode_masks_nwords = (signed char)words;
        if (words <= ethtool_most_words &&
            ethtool_ask(device, link, sizeof *settings + 3 * (size_t)words * sizeof *link->words) &&
            settings->link_mode_masks_nwords == words)
        {
            return true;
        }
    }
    memset(link, 0, sizeof *link);
    return false;
}

bool ethtool_has_mode(const union ethtool_link* link, enum ethtool_modes modes, unsigned int bit)
{
    const unsigned int words = (unsigned int)link->settings.link_mode_masks_nwords;
    return bit / 32 < words &&
           (link->settings.link_mode_masks[modes * words + bit / 32] >> bit % 32 & 1) != 0;
}
