/*
 * The parts of the daemon. A scan publishes, updates and withdraws the objects of one topic
 * (object.h), at start and whenever something has changed. A failure is logged, and the rest is
 * still published.
 */
#ifndef INVENTORY_H
#define INVENTORY_H

#include <systemd/sd-event.h>

/* The firmware that the machine started from, as a short record, a BLT, and a long one, a
 * BiosSoftwareInventory; and what DMI tells of the board, the product and the chassis, a
 * HWIOemFruCustomData. Without DMI there is only a BLT, which describes the kernel instead. */
void scan_firmware(void);

/* The boot configuration of a machine with EFI firmware, from its variables: a BootDevice for each
 * load option, and a BootSequence with the order in which they are tried. */
void scan_boot(void);

/* For each PCI device a HWIStndConfig with its location, identity and class, and for each PCI
 * Express device a HWIPcie with its link. */
void scan_pci(void);

/* A USB for each USB device, hubs included. */
void scan_usb(void);

/* Network adapters: a NicSlot and a NicController for each card, a NicPort and a NicConnectionView
 * for each port, and a NicPartition for each of its interfaces. */
void scan_nic(void);

/* Fibre Channel and InfiniBand adapters: a slot and a controller for each card, a port for each of
 * its ports, and a partition for each port. */
void scan_fc(void);
void scan_ib(void);

/* All of these. */
void scan_all(void);

/* These follow what changes, EFI variables and network interfaces, as long as the loop exists, and
 * note what has to be read again (devices.h). They return 0, also where there is no such thing, or
 * a negative errno. */
int boot_watch(sd_event* event);
int nic_watch(sd_event* event);

/* Dumps of adapters are written to `directory`; without one, which is null, they are refused. The
 * text must outlive the loop. Call dump_free after the context is freed: then the library has
 * answered the call that waits for a dump. */
void dump_open(sd_event* event, const char* directory);
void dump_free(void);

/* What tells clients of the inventory as a whole: a HWISupport, whose isready becomes true once
 * everything is published, and a HWInventory, whose two status methods answer 0 from then on and 1
 * before. The last function sends HardwareInventoryChanged and Refresh. */
void readiness_publish(void);
void readiness_declare(void);
void readiness_signal_change(void);

#endif
