#include "nic.h"
#include "sysfs.h"

#include <string.h>

/* Subtypes under IEEE 802.1AB, which has the same number for a chassis and a port. A bridge's
 * identifier is its priority and its address, so it isn't of the subtype of addresses. */
enum
{
    unknown = 0,
    locally_assigned = 7
};

void nic_connection_read(struct object* object, const char* device)
{
    char partner[sysfs_text_size];
    char port[sysfs_text_size];
    char own[sysfs_text_size];
    /* On a link where the own bridge is the designated one, no other bridge is known. */
    const bool known =
        sysfs_text(device, "brport/designated_bridge", partner) &&
        sysfs_text(device, "brport/designated_port", port) &&
        !(sysfs_text(device, "brport/bridge/bridge/bridge_id", own) && strcmp(partner, own) == 0);
    object_put_string(object, "ChassisId", known ? partner : "");
    object_put_uint16(object, "ChassisIdSubType", known ? locally_assigned : unknown);
    object_put_string(object, "PortId", known ? port : "");
    object_put_uint16(object, "PortIdSubType", known ? locally_assigned : unknown);
}

bool nic_connection_publish(struct object* object, GANTRY_cpp_context* context, const char* device,
                            const struct rtnetlink_link* link)
{
    if (!object_publish(object, context,
                        GANTRY_instantiate__com_orvane_velmar_system_NicConnectionView,
                        "com.orvane.velmar.system.NicConnectionView", link->name))
    {
        return false;
    }
    object_put_format(object, "FQDD", "NIC.%s", link->name);
    nic_connection_read(object, device);
    return true;
}
