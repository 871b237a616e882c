/*
 * The devices of the kernel's model: sd-device enumerates them and tells of those that come, go and
 * change. Of a record, the links in class/ and bus/ are the devices.
 *
 * What has changed since the last scan is kept as a set of directories. A device is due, so that
 * its objects are read again, if its directory is in the set, or one above or below it: an
 * interface that comes changes the card that has it. Of a PCI function the directory above is in
 * the set, as a virtual function that comes changes its physical function beside it.
 */
#ifndef DEVICES_H
#define DEVICES_H

#include "sysfs.h"

#include <systemd/sd-event.h>

/* Calls `visit` with the directory and name of each device of the subsystem, such as
 * /sys/devices/pci0000:00/0000:00:1f.3 and 0000:00:1f.3. The directory is free of links. */
void devices_each(const char* subsystem, sysfs_visit* visit, void* data);

/* Watches the devices as long as the loop exists: notes each change and calls `changed`. Returns 0
 * or a negative errno. */
int devices_watch(sd_event* event, void (*changed)(void));

/* Makes a device due; all if it is null. */
void devices_note(const char* device);

bool devices_is_due(const char* device);

/* Empties the set, after a scan. */
void devices_forget(void);

#endif
