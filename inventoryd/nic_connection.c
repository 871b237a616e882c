#include "nic.h"

#include <string.h>

/* Subtypes under IEEE 802.1AB, which has the same number for a chassis and a port. A bridge's
 * identifier is its priority and its address, so it isn't of the subtype of addresses. */
enum
{
    unknown = 0,
    locally_assigned = 7
};

void nic_put_connection(struct object* object)
{
    const char* device = object->device;
    char partner[sysfs_text_size];
    char port[sysfs_text_size];
    char own[sysfs_text_size];
    /* On a link where the own bridge is the designated one, no other bridge is known. */
    const bool known =
        sysfs_text(device, "brport/designated_bridge", partner) &&
        sysfs_text(device, "brport/designated_port", port) &&
        !(sysfs_text(device, "brport/bridge/bridge/bridge_id", own) && strcmp(partner, own) == 0);
    object_put_string(object, "ChassisId", known ? partner : "");
    object_put_number(object, "ChassisIdSubType", known ? locally_assigned : unknown);
    object_put_string(object, "PortId", known ? port : "");
    object_put_number(object, "PortIdSubType", known ? locally_assigned : unknown);
}
