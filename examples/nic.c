#include "nic.h"

#include "sysfs.h"

#include <string.h>
#include <time.h>

/* A host and its clients agree on the codes. */
enum
{
    link_unknown = 0,
    link_up = 1,
    link_down = 2
};

void nic_put_link_status(struct object* object, const char* member, const char* device)
{
    char state[sysfs_text_size];
    if (sysfs_text(device, "operstate", state))
    {
        object_put_byte(object, member,
                        strcmp(state, "up") == 0     ? link_up
                        : strcmp(state, "down") == 0 ? link_down
                                                     : link_unknown);
    }
}

bool nic_received_packets(const char* device, uint64_t* unicast, uint64_t* multicast)
{
    uint64_t all = 0;
    if (!sysfs_number(device, "statistics/rx_packets", 10, &all) ||
        !sysfs_number(device, "statistics/multicast", 10, multicast) || all < *multicast)
    {
        return false;
    }
    *unicast = all - *multicast;
    return true;
}

uint32_t nic_now(void)
{
    return (uint32_t)time(NULL);
}
