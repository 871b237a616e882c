#include "inventory.h"
#include "sysfs.h"

#include <stdio.h>
#include <string.h>
#include <sys/utsname.h>

enum
{
    most_fields = 6,
    field_size = 256
};

static struct kind firmware_kind = {OBJECT_KIND(system, BLT)};
static struct kind software_kind = {OBJECT_KIND(system, BiosSoftwareInventory)};
static struct kind fru_kind = {OBJECT_KIND(hwi, HWIOemFruCustomData)};

/* The DMI fields that no other object has. Each is an item of its area's property: name=value. */
static const struct area
{
    const char* member;
    const char* fields[most_fields];
} areas[] = {
    {"BoardCustomData",
     {"board_vendor", "board_name", "board_version", "board_serial", "board_asset_tag"}},
    {"ProductInfoCustomData",
     {"sys_vendor", "product_version", "product_serial", "product_uuid", "product_sku",
      "product_family"}},
    {"ChassisCustomData",
     {"chassis_vendor", "chassis_type", "chassis_version", "chassis_serial", "chassis_asset_tag"}},
};

/* The first four numbers of a version as one that sorts like it, if each is below 65536: 6.1.12 is
 * 0x0006'0001'000C'0000, and so is V6.1.12-rc. */
static uint64_t packed_version(const char* version)
{
    uint64_t packed = 0;
    version += strcspn(version, "0123456789");
    for (int part = 0; part < 4; ++part)
    {
        uint16_t value = 0;
        while (*version >= '0' && *version <= '9')
        {
            value = (uint16_t)(value * 10 + (*version++ - '0'));
        }
        packed = packed << 16 | value;
        version = *version == '.' ? version + 1 : "";
    }
    return packed;
}

static void put_area(struct object* object, const struct area* area)
{
    char lines[most_fields][field_size];
    char* items[most_fields];
    GANTRY_string_array list = {.data = items};
    for (size_t i = 0; i < most_fields && area->fields[i] != NULL; ++i)
    {
        char text[sysfs_text_size];
        if (sysfs_text(object->device, area->fields[i], text) && text[0] != '\0')
        {
            items[list.count] = lines[list.count];
            snprintf(lines[list.count++], field_size, "%s=%.200s", area->fields[i], text);
        }
    }
    object_put_strings(object, area->member, &list);
}

void scan_firmware(void)
{
    static const struct row rows[] = {
        {"Manufacturer", "bios_vendor", row_plain},
        {"ProductName", "product_name", row_plain},
        {"CurrentVersionString", "bios_version", row_plain},
        {"InstalledVersionString", "bios_version", row_plain},
        {"CurrentReleaseDate", "bios_date", row_plain},
        {0},
    };
    char dmi[sysfs_path_size];
    char text[sysfs_text_size];
    char version[sysfs_text_size];
    struct utsname kernel;
    struct object* object = NULL;
    if (!sysfs_join(dmi, sysfs_root, "class/dmi/id") || uname(&kernel) != 0)
    {
        return;
    }
    const bool has_bios = sysfs_text(dmi, "bios_version", version);
    if ((object = object_due(&firmware_kind, "", dmi)) != NULL)
    {
        const char* release = has_bios ? version : kernel.release;
        object_put_string(object, "Key", has_bios ? "BIOS" : "Kernel");
        object_put_string(object, "fqdd", has_bios ? "BIOS.Setup.1-1" : "OS.Kernel.1-1");
        object_put_string(object, "FriendlyFQDD", has_bios ? "System firmware" : "Kernel");
        object_put_string(object, "ProductName", has_bios ? NULL : kernel.sysname);
        object_put_string(object, "FirmwareVersion", release);
        object_put_number(object, "Version", packed_version(release));
        sysfs_put(object, dmi, rows);
        object_complete(object);
    }
    if (has_bios && (object = object_due(&software_kind, "", dmi)) != NULL)
    {
        object_put_string(object, "Key", "BIOS");
        object_put_string(object, "FQDD", "BIOS.Setup.1-1");
        object_put_string(object, "FriendlyFQDD", "System firmware");
        if (sysfs_text(dmi, "bios_vendor", text))
        {
            object_put_format(object, "DisplayName", "%s system firmware", text);
        }
        sysfs_put(object, dmi, rows);
        object_complete(object);
    }
    if (sysfs_has_directory(sysfs_root, "class/dmi/id") &&
        (object = object_due(&fru_kind, "", dmi)) != NULL)
    {
        for (size_t i = 0; i < sizeof areas / sizeof *areas; ++i)
        {
            put_area(object, areas + i);
        }
        object_complete(object);
    }
}
