#include "inventory.h"

#include "card.h"
#include "devices.h"

#include <com/orvane/velmar/HWInventory/gantry_server.h>
#include <com/orvane/velmar/hwi/HWISupport/gantry_server.h>

void scan_all(void)
{
    scan_firmware();
    scan_boot();
    scan_pci();
    scan_usb();
    scan_nic();
    scan_fc();
    scan_ib();
    objects_end_scan();
    devices_forget();
    hwdb_close();
}

static bool is_ready;

/* A client may call this method instead of reading the property. */
static void query_is_ready(GANTRY_instance* instance, bool* ready)
{
    (void)instance;
    *ready = is_ready;
}

static void get_status(GANTRY_instance* instance, int* status)
{
    (void)instance;
    *status = is_ready ? 0 : 1;
}

static const GANTRY_table__com_orvane_velmar_hwi_HWISupport support = {
    .queryIsReady = query_is_ready,
};
static const GANTRY_table__com_orvane_velmar_HWInventory inventory = {
    .GetDMStatus = get_status,
    .GetPopStatus = get_status,
};

void readiness_publish(void)
{
    GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport(NULL, &support, NULL, NULL);
    GANTRY_instantiate__com_orvane_velmar_HWInventory(NULL, &inventory, NULL, NULL);
}

void readiness_declare(void)
{
    GANTRY_instance* instance = NULL;
    is_ready = true;
    GANTRY_instance_find(NULL, "com.orvane.velmar.hwi.HWISupport", NULL, &instance);
    GANTRY_set__com_orvane_velmar_hwi_HWISupport__isready(instance, true, false, NULL);
}

void readiness_signal_change(void)
{
    static char changed[] = "changed";
    GANTRY_signal__com_orvane_velmar_hwi_HWISupport__HardwareInventoryChanged(NULL);
    GANTRY_signal__com_orvane_velmar_HWInventory__Refresh(NULL, changed);
}
