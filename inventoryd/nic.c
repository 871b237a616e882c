#include "nic.h"

#include "sysfs.h"

#include <linux/if.h>
#include <string.h>
#include <time.h>

/* This host's codes. */
enum
{
    link_unknown = 0,
    link_up = 1,
    link_down = 2,
    driver_bound = 1
};

void nic_put_link_status(struct object* object, const char* member,
                         const struct rtnetlink_link* link)
{
    object_put_byte(object, member,
                    link->state == IF_OPER_UP     ? link_up
                    : link->state == IF_OPER_DOWN ? link_down
                                                  : link_unknown);
}

void nic_put_driver_state(struct object* object, const char* member, const char* device)
{
    char driver[sysfs_path_size];
    if (sysfs_link_name(device, "device/driver", driver))
    {
        object_put_byte(object, member, driver_bound);
    }
}

void nic_put_counters(struct object* object, const struct rtnetlink_link* link,
                      const struct nic_counter* counters, size_t count)
{
    if (!link->has_counters)
    {
        return;
    }
    for (const struct nic_counter* each = counters; each < counters + count; ++each)
    {
        uint64_t value = 0;
        memcpy(&value, (const char*)&link->counters + each->offset, sizeof value);
        each->put(object, each->member, value);
    }
}

void nic_put_statistics_time(struct object* object)
{
    if (object->changed_count > 0)
    {
        object_put_uint32(object, "StatisticsTime", (uint32_t)time(NULL));
    }
}
