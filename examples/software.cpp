#include "software.hpp"

#include "publish.hpp"

#include <com/orvane/velmar/system/BiosSoftwareInventory/gantry_server.hpp>

void publish_software(GANTRY_cpp_context& context, const sysfs::Directory& sys)
{
    using GANTRY_com_orvane_velmar_system_BiosSoftwareInventory::BiosSoftwareInventory;

    const auto dmi = sys / "class/dmi/id";
    const auto version = sysfs::text(dmi / "bios_version");
    auto* object =
        version ? publish<BiosSoftwareInventory>(
                      context, GANTRY_instantiate__com_orvane_velmar_system_BiosSoftwareInventory)
                : nullptr;
    if (object == nullptr)
    {
        return;
    }
    constexpr bool skip_signal = true;
    object->key("BIOS", skip_signal);
    object->fqdd("BIOS.Setup.1-1", skip_signal);
    object->friendlyFQDD("System firmware", skip_signal);
    object->displayName(sysfs::text(dmi / "bios_vendor").value_or("") + " system firmware",
                        skip_signal);
    object->currentVersionString(*version, skip_signal);
    object->installedVersionString(*version, skip_signal);
    object->currentReleaseDate(sysfs::text(dmi / "bios_date").value_or(""), skip_signal);
}
