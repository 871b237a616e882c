#include "nic.h"
#include "sysfs.h"

#include <string.h>

/* Subtypes of a chassis and of a port in the link layer discovery protocol. */
enum
{
    chassis_unknown = 0,
    chassis_mac_address = 4,
    port_unknown = 0,
    port_local = 7
};

void nic_connection_read(struct object* object, const char* device)
{
    char partner[sysfs_text_size];
    char port[sysfs_text_size];
    char own[sysfs_text_size];
    /* If the own bridge is the link's designated one, no other bridge is known. */
    const bool known =
        sysfs_text(device, "brport/designated_bridge", partner) &&
        sysfs_text(device, "brport/designated_port", port) &&
        !(sysfs_text(device, "brport/bridge/bridge/bridge_id", own) && strcmp(partner, own) == 0);
    object_put_string(object, "ChassisId", known ? partner : "");
    object_put_uint16(object, "ChassisIdSubType", known ? chassis_mac_address : chassis_unknown);
    object_put_string(object, "PortId", known ? port : "");
    object_put_uint16(object, "PortIdSubType", known ? port_local : port_unknown);
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
