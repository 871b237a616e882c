#include "connection.hpp"

#include "network_device.hpp"
#include "publish.hpp"

#include <com/orvane/velmar/system/NicConnectionView/gantry_server.hpp>

namespace
{

using GANTRY_com_orvane_velmar_system_NicConnectionView::NicConnectionView;

// The subtypes that the link layer discovery protocol has for a chassis and for a port.
enum ChassisIdSubType : unsigned short
{
    chassis_unknown = 0,
    chassis_mac_address = 4,
};

enum PortIdSubType : unsigned short
{
    port_unknown = 0,
    port_local = 7,
};

void read(NicConnectionView& object, const sysfs::Directory& device, bool skip_signal)
{
    const auto partner = sysfs::text(device / "brport/designated_bridge");
    const auto port = sysfs::text(device / "brport/designated_port");
    // On a link where our own bridge is the designated one, the protocol tells of no other.
    const bool known =
        partner && port && partner != sysfs::text(device / "brport/bridge/bridge/bridge_id");
    object.chassisId(known ? *partner : "", skip_signal);
    object.chassisIdSubType(known ? chassis_mac_address : chassis_unknown, skip_signal);
    object.portId(known ? *port : "", skip_signal);
    object.portIdSubType(known ? port_local : port_unknown, skip_signal);
}

} // namespace

NetworkConnections::NetworkConnections(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    constexpr auto prefix = "/com/orvane/velmar/system/NicConnectionView";
    for (const auto& device : network_devices(sys))
    {
        auto* object = publish<NicConnectionView>(
            context, GANTRY_instantiate__com_orvane_velmar_system_NicConnectionView,
            path_of(prefix, device.filename()).c_str());
        if (object != nullptr)
        {
            object->fqdd(port_fqdd(device), true);
            read(*object, device, true);
            connections.push_back({device, object});
        }
    }
}

void NetworkConnections::refresh()
{
    for (const auto& connection : connections)
    {
        read(*connection.object, connection.device, false);
    }
}
