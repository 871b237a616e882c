#include "inventory.h"
#include "object.h"
#include "sysfs.h"

#include <string.h>
#include <sys/utsname.h>

static struct kind firmware_kind = {OBJECT_KIND(system, BLT)};

/* The first four numbers of a version as one that sorts like it, if each is below 65536: 6.1.12 is
 * 0x0006'0001'000C'0000, and so is V6.1.12-rc. */
static uint64_t packed_version(const char* version)
{
    uint64_t packed = 0;
    for (int part = 0; part < 4; ++part)
    {
        uint16_t value = 0;
        version += part == 0 ? strcspn(version, "0123456789") : 0;
        while (*version >= '0' && *version <= '9')
        {
            value = (uint16_t)(value * 10 + (*version++ - '0'));
        }
        packed = packed << 16 | value;
        version = *version == '.' ? version + 1 : "";
    }
    return packed;
}

void scan_firmware(void)
{
    char dmi[sysfs_path_size];
    char text[sysfs_text_size];
    char version[sysfs_text_size];
    struct utsname kernel;
    struct object* object = uname(&kernel) == 0 && sysfs_join(dmi, sysfs_root, "class/dmi/id")
                                ? object_due(&firmware_kind, "", dmi)
                                : NULL;
    if (object == NULL)
    {
        return;
    }
    const bool bios = sysfs_text(dmi, "bios_version", version);
    const char* release = bios ? version : kernel.release;
    object_put_string(object, "Key", bios ? "BIOS" : "Kernel");
    object_put_string(object, "fqdd", bios ? "BIOS.Setup.1-1" : "OS.Kernel.1-1");
    object_put_string(object, "FriendlyFQDD", bios ? "System firmware" : "Kernel");
    object_put_string(object, "Manufacturer", sysfs_text(dmi, "bios_vendor", text) ? text : NULL);
    object_put_string(object, "ProductName",
                      sysfs_text(dmi, "product_name", text) ? text : kernel.sysname);
    object_put_string(object, "FirmwareVersion", release);
    object_put_uint64(object, "Version", packed_version(release));
    object_complete(object);
}
