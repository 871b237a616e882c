#include "attribute.h"
#include "inventory.h"
#include "sysfs.h"

static const struct attribute attributes[] = {
    {"CurrentVersionString", "bios_version", NULL, 0},
    {"InstalledVersionString", "bios_version", NULL, 0},
    {"CurrentReleaseDate", "bios_date", NULL, 0},
};

static struct kind software_kind = {OBJECT_KIND(system, BiosSoftwareInventory)};

void scan_software(void)
{
    char dmi[sysfs_path_size];
    char text[sysfs_text_size];
    struct object* object = NULL;
    if (sysfs_join(dmi, sysfs_root, "class/dmi/id") && sysfs_text(dmi, "bios_version", text) &&
        (object = object_due(&software_kind, "", dmi)) != NULL)
    {
        object_put_string(object, "Key", "BIOS");
        object_put_string(object, "FQDD", "BIOS.Setup.1-1");
        object_put_string(object, "FriendlyFQDD", "System firmware");
        if (sysfs_text(dmi, "bios_vendor", text))
        {
            object_put_format(object, "DisplayName", "%s system firmware", text);
        }
        attributes_read(object, dmi, attributes, sizeof attributes / sizeof *attributes);
        object_complete(object);
    }
}
