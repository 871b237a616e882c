#include "inventory.h"

#include "card.h"
#include "devices.h"

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
