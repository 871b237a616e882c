/*
 * Writes a record of the machine: a directory with what the readers have read, each file below the
 * path that it has below /sys, with its mode. `inventoryd --root` publishes it elsewhere. What the
 * kernel answers otherwise is beside it:
 *
 *     class/net/NAME, bus/pci/devices/NAME, ...   a link to each device below devices/
 *     DEVICE/rtnetlink                            the message about a network interface
 *     DEVICE/ethtool/N, DEVICE/ethtool/ioctl-N    the answer to the request of that number
 *     DEVICE/module/A-B-P-O                       128 bytes of the EEPROM of an interface's module:
 *                                                 I2C address, bank, page and offset in hexadecimal
 *     DEVICE/devlink                              the answer to DEVLINK_CMD_INFO_GET of a card
 *
 * Unless serial numbers are asked for, the files that only root may read are left out, and those
 * that all may read are recorded with `X` for each letter.
 */
#ifndef RECORD_H
#define RECORD_H

#include <stdbool.h>
#include <stddef.h>
#include <sys/types.h>

/* Starts to record. Returns 0 or an errno. */
int record_start(const char* directory);

/* These do nothing if no record is written. `path` begins with sysfs_root. A failure is logged. */
void record_file(const char* path, const void* bytes, size_t size, mode_t mode);
void record_link(const char* path, const char* target);
void record_directory(const char* path);

#endif
