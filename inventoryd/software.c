#include "attribute.h"
#include "inventory.h"
#include "sysfs.h"

static const struct attribute attributes[] = {
    {"CurrentVersionString", "bios_version", NULL, 0},
    {"InstalledVersionString", "bios_version", NULL, 0},
    {"CurrentReleaseDate", "bios_date", NULL, 0},
};

void publish_software(GANTRY_cpp_context* context, const char* sys)
{
    char dmi[sysfs_path_size];
    char text[sysfs_text_size];
    struct object object;
    if (!sysfs_join(dmi, sys, "class/dmi/id") || !sysfs_text(dmi, "bios_version", text) ||
        !object_publish(&object, context,
                        GANTRY_instantiate__com_orvane_velmar_system_BiosSoftwareInventory,
                        "com.orvane.velmar.system.BiosSoftwareInventory", NULL))
    {
        return;
    }
    object_put_string(&object, "Key", "BIOS");
    object_put_string(&object, "FQDD", "BIOS.Setup.1-1");
    object_put_string(&object, "FriendlyFQDD", "System firmware");
    if (sysfs_text(dmi, "bios_vendor", text))
    {
        object_put_format(&object, "DisplayName", "%s system firmware", text);
    }
    attributes_read(&object, dmi, attributes, sizeof attributes / sizeof *attributes);
}
