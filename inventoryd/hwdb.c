#include "hwdb.h"

#include "sysfs.h"

#include <systemd/sd-hwdb.h>

static sd_hwdb* database;

static void put(struct object* object, const char* member, const char* modalias, const char* key)
{
    const char* name = NULL;
    if (member != NULL && sd_hwdb_get(database, modalias, key, &name) >= 0)
    {
        object_put_string(object, member, name);
    }
}

void hwdb_put(struct object* object, const char* modalias, struct hwdb_members members)
{
    if (database == NULL && sd_hwdb_new(&database) < 0)
    {
        return;
    }
    put(object, members.vendor, modalias, "ID_VENDOR_FROM_DATABASE");
    put(object, members.product, modalias, "ID_MODEL_FROM_DATABASE");
    put(object, members.subclass, modalias, "ID_PCI_SUBCLASS_FROM_DATABASE");
}

void hwdb_put_device(struct object* object, const char* device, struct hwdb_members members)
{
    char modalias[sysfs_text_size];
    if (sysfs_text(device, "modalias", modalias))
    {
        hwdb_put(object, modalias, members);
    }
}

void hwdb_close(void)
{
    database = sd_hwdb_unref(database);
}
