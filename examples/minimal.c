/*
 * A complete host on one screen: an inventory service object and one network adapter slot.
 *
 *     busctl call com.orvane.velmar.HWInventory /com/orvane/velmar/HWInventory \
 *         com.orvane.velmar.HWInventory GetDMStatus
 */
#define _POSIX_C_SOURCE 200809L /* strdup */

#include <gantry/gantry.h>

#include <stdlib.h>
#include <string.h>

static void get_status(GANTRY_instance* instance, int* status)
{
    (void)instance;
    *status = 1;
}

static void dump_core(GANTRY_instance* instance, char* job, unsigned char type, char* share,
                      char* folder, char* file, char* user, char* password, unsigned char flags,
                      int* status, char** message)
{
    (void)instance, (void)type, (void)share, (void)folder, (void)file;
    (void)user, (void)password, (void)flags;
    *status = 0;
    *message = strdup(job); /* the library frees it */
}

static const GANTRY_table__com_orvane_velmar_HWInventory inventory = {
    .GetDMStatus = get_status, /* GetPopStatus has no function and so replies 0 */
};

static const GANTRY_table__com_orvane_velmar_system_NicSlot slot = {
    .TriggerAdapterCoreDump = dump_core,
};

int main(void)
{
    const char* name = NULL;
    GANTRY_instantiate__com_orvane_velmar_HWInventory(NULL, &inventory, NULL, NULL);
    GANTRY_context_get_service(NULL, &name);
    if (name == NULL)
    {
        return EXIT_FAILURE; /* no client would find it; the log says who refused the name */
    }
    GANTRY_instantiate__com_orvane_velmar_system_NicSlot(
        NULL, &slot, "/com/orvane/velmar/system/NicSlot/1", NULL);
    GANTRY_signal__com_orvane_velmar_HWInventory__Refresh(NULL, "started");
    GANTRY_dbus_loop(NULL);
    return EXIT_FAILURE; /* the log says why the loop ended */
}
