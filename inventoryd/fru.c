#include "inventory.h"
#include "object.h"
#include "sysfs.h"

#include <stdio.h>

enum
{
    most_fields = 6,
    field_size = 256
};

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

static struct kind fru_kind = {OBJECT_KIND(hwi, HWIOemFruCustomData)};

static void put_area(struct object* object, const char* dmi, const struct area* area)
{
    char lines[most_fields][field_size];
    char* items[most_fields];
    GANTRY_string_array list = {.data = items};
    for (size_t i = 0; i < most_fields && area->fields[i] != NULL; ++i)
    {
        char text[sysfs_text_size];
        if (sysfs_text(dmi, area->fields[i], text) && text[0] != '\0')
        {
            items[list.count] = lines[list.count];
            snprintf(lines[list.count++], field_size, "%s=%.200s", area->fields[i], text);
        }
    }
    object_put_strings(object, area->member, &list);
}

void scan_fru(void)
{
    char dmi[sysfs_path_size];
    struct object* object = NULL;
    if (sysfs_has_directory(sysfs_root, "class/dmi/id") &&
        sysfs_join(dmi, sysfs_root, "class/dmi/id") &&
        (object = object_due(&fru_kind, "", dmi)) != NULL)
    {
        for (size_t i = 0; i < sizeof areas / sizeof *areas; ++i)
        {
            put_area(object, dmi, areas + i);
        }
        object_complete(object);
    }
}
