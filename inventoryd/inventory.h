/*
 * The scans: each publishes, updates and withdraws the objects of one topic (object.h), at start
 * and whenever something has changed. A failure is logged, and the rest is still published.
 */
#ifndef INVENTORY_H
#define INVENTORY_H

/* The short record of the firmware that the machine started from, a BLT. Without DMI it describes
 * the kernel instead. */
void scan_firmware(void);

/* The long record of that firmware, a BiosSoftwareInventory; none without DMI. */
void scan_software(void);

/* What DMI tells of the board, the product and the chassis, a HWIOemFruCustomData; none without
 * DMI. */
void scan_fru(void);

/* The boot configuration of a machine with EFI firmware: a BootDevice for each load option, and a
 * BootSequence with the order in which they are tried. */
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

#endif
