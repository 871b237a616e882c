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
    GANTRY_property_set_strings(object->instance, area->member, &list, true, NULL);
}

void publish_fru(GANTRY_cpp_context* context, const char* sys)
{
    char dmi[sysfs_path_size];
    struct object object;
    if (!sysfs_join(dmi, sys, "class/dmi/id") || !sysfs_is_directory(dmi) ||
        !object_publish(&object, context,
                        GANTRY_instantiate__com_orvane_velmar_hwi_HWIOemFruCustomData,
                        "com.orvane.velmar.hwi.HWIOemFruCustomData", NULL))
    {
        return;
    }
    for (size_t i = 0; i < sizeof areas / sizeof *areas; ++i)
    {
        put_area(&object, dmi, areas + i);
    }
}
