#include "efi.h"
#include "inventory.h"
#include "object.h"

#include <stdio.h>

static const char sequence_key[] = "BootSequence.UEFI";

struct boot
{
    GANTRY_cpp_context* context;
    const char* sys;
    struct efi_boot_order order;
    bool has_next;
    uint16_t next;
};

/* The option's place in the order, counted from 1; 0 if it isn't there. */
static size_t index_of(const struct efi_boot_order* order, uint16_t option)
{
    for (size_t i = 0; i < order->count; ++i)
    {
        if (order->numbers[i] == option)
        {
            return i + 1;
        }
    }
    return 0;
}

/* The option's place at the next start, when the firmware tries `next` before all others. */
static size_t pending_index_of(const struct boot* boot, uint16_t option)
{
    const size_t place = index_of(&boot->order, option);
    const size_t former = index_of(&boot->order, boot->next);
    if (boot->has_next && option == boot->next)
    {
        return 1;
    }
    return !boot->has_next || place == 0 || (former != 0 && former < place) ? place : place + 1;
}

static void publish_sequence(const struct boot* boot)
{
    struct object object;
    uint16_t current = 0;
    char name[efi_name_size];
    char keys[efi_most_options * sizeof ",BootDevice.Boot0000"] = "";
    char* end = keys;
    if (!object_publish(&object, boot->context,
                        GANTRY_instantiate__com_orvane_velmar_system_BootSequence,
                        "com.orvane.velmar.system.BootSequence", NULL))
    {
        return;
    }
    for (size_t i = 0; i < boot->order.count; ++i)
    {
        efi_option_name(boot->order.numbers[i], name);
        end += sprintf(end, "%sBootDevice.%s", i == 0 ? "" : ",", name);
    }
    object_put_string(&object, "hdr_DOT_fqdd", sequence_key);
    object_put_string(&object, "hdr_DOT_key", sequence_key);
    object_put_string(&object, "hdr_DOT_objName", "UEFI boot sequence");
    object_put_string(&object, "hdr_DOT_objDependencies", keys);
    if (efi_read_boot_current(boot->sys, &current))
    {
        object_put_byte(&object, "iCurrentIndex", index_of(&boot->order, current));
    }
}

static void publish_option(void* data, uint16_t number)
{
    const struct boot* boot = data;
    struct efi_load_option option;
    struct object object;
    char name[efi_name_size];
    if (!efi_read_load_option(boot->sys, number, &option))
    {
        return;
    }
    efi_option_name(number, name);
    if (object_publish(&object, boot->context,
                       GANTRY_instantiate__com_orvane_velmar_system_BootDevice,
                       "com.orvane.velmar.system.BootDevice", name))
    {
        object_put_uint32(&object, "UniqueID", number);
        object_put_string(&object, "oBootType", "UEFI");
        object_put_string(&object, "oBootPath", option.path);
        object_put_string(&object, "oBootData", option.data);
        object_put_string(&object, "obootOptionReference", name);
        object_put_byte(&object, "iCurrentIndex", index_of(&boot->order, number));
        object_put_byte(&object, "iPendingIndex", pending_index_of(boot, number));
        object_put_byte(&object, "iEnabled", object_switch(true, option.active));
        object_put_format(&object, "hdr_DOT_fqdd", "BootDevice.%s", name);
        object_put_format(&object, "hdr_DOT_key", "BootDevice.%s", name);
        object_put_string(&object, "hdr_DOT_objName", option.description);
        object_put_string(&object, "ParentObjectKey", sequence_key);
    }
    efi_free_load_option(&option);
}

void publish_boot(GANTRY_cpp_context* context, const char* sys)
{
    struct boot boot = {.context = context, .sys = sys};
    boot.has_next = efi_read_boot_next(sys, &boot.next);
    if (efi_read_boot_order(sys, &boot.order))
    {
        publish_sequence(&boot);
    }
    efi_each_load_option(sys, publish_option, &boot);
}
