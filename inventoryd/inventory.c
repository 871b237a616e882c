#include "inventory.h"

#include "devices.h"
#include "hwdb.h"
#include "object.h"
#include "slots.h"

void scan_all(void)
{
    scan_firmware();
    scan_software();
    scan_fru();
    scan_boot();
    scan_pci();
    scan_usb();
    scan_nic();
    scan_fc();
    scan_ib();
    objects_end_scan();
    slots_end_scan();
    devices_forget();
    hwdb_close();
}
