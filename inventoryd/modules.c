#include "devices.h"
#include "module.h"
#include "nic.h"

#include <string.h>
#include <time.h>

static void put_readings(struct object* object);

static struct
{
    const struct module_standard* standard;
    struct kind kind;
} interfaces[] = {
    {&module_sfp, {OBJECT_KIND(system, SFP), .put_counters = put_readings, .is_slow = true}},
    {&module_qsfp, {OBJECT_KIND(system, QSFP), .put_counters = put_readings, .is_slow = true}},
    {&module_qsfpd, {OBJECT_KIND(system, QSFPD), .put_counters = put_readings, .is_slow = true}},
};

static const size_t interface_count = sizeof interfaces / sizeof *interfaces;

/* The kind of such modules; null if the standard is. */
static struct kind* kind_of(const struct module_standard* standard)
{
    size_t i = 0;
    while (i < interface_count && interfaces[i].standard != standard)
    {
        ++i;
    }
    return i < interface_count ? &interfaces[i].kind : NULL;
}

/* The kind of the module that the port was found to have, or null. */
static struct kind* known_kind(uint64_t tag)
{
    size_t i = 0;
    while (i < interface_count && kind_find(&interfaces[i].kind, tag) == NULL)
    {
        ++i;
    }
    return i < interface_count ? &interfaces[i].kind : NULL;
}

/* Returns null if there is no module of a known standard. */
static const struct module_standard* read_memory(const char* device, struct module_memory* memory)
{
    static const char* const files[page_count] = {
        [page_lower] = "module/50-00-00-00", [page_00] = "module/50-00-00-80",
        [page_01] = "module/50-00-01-80",    [page_02] = "module/50-00-02-80",
        [page_03] = "module/50-00-03-80",    [page_11] = "module/50-00-11-80",
        [page_13] = "module/50-00-13-80",    [page_A2] = "module/51-00-00-00",
    };
    const struct module_standard* standard = NULL;
    uint32_t things = MODULE_PAGE(page_lower);
    memset(memory, 0, sizeof *memory);
    for (unsigned int page = 0; page < page_count; ++page)
    {
        if ((things & MODULE_PAGE(page)) != 0 &&
            ethtool_read_page(device, files[page], memory->bytes[page]))
        {
            memory->pages |= MODULE_PAGE(page);
        }
        if ((standard = module_standard_of(memory)) == NULL)
        {
            return NULL;
        }
        things = module_things(standard, memory);
    }
    if (!sysfs_serials)
    {
        module_hide_serial(standard, memory);
    }
    for (unsigned int page = 0; page < page_count; ++page)
    {
        if ((memory->pages & MODULE_PAGE(page)) != 0)
        {
            record_answer(device, files[page], memory->bytes[page], page_size);
        }
    }
    return standard;
}

static void put_readings(struct object* object)
{
    struct module_memory memory;
    const struct module_standard* standard = read_memory(object->device, &memory);
    if (kind_of(standard) != object->kind)
    {
        devices_note(object->device);
        return;
    }
    module_put(object, standard, &memory);
    object_put_statistics_times(object);
}

void modules_scan_port(const char* port, const char* device, uint64_t tag, bool is_due)
{
    struct module_memory memory;
    const struct module_standard* standard = is_due ? read_memory(device, &memory) : NULL;
    struct kind* kind = is_due ? kind_of(standard) : known_kind(tag);
    struct object* object = kind != NULL ? object_due(kind, port, device) : NULL;
    if (object != NULL && is_due)
    {
        object->tag = tag;
        object_put_format(object, "FQDD", "NIC.%s", port);
        object->counted_at = (uint64_t)time(NULL);
        module_put(object, standard, &memory);
        object_put_statistics_times(object);
        object_announce(object);
    }
}

bool modules_may_come(const struct object* port)
{
    return strstr(port->device, "/devices/virtual/") == NULL && known_kind(port->tag) == NULL;
}
