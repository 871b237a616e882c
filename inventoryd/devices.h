/*
 * The devices of the kernel's model: sd-device enumerates them and tells of those that come, go and
 * change. Of a record, the links in class/ and bus/ are the devices.
 *
 * What has changed since the last scan is kept as a set of directories, and asks for a scan. A
 * device is due, so that its objects are read again, if its directory is in the set, or one above
 * or below it: an interface that comes changes the card that has it. Of a PCI function the
 * directory above is in the set, as a virtual function that comes changes its physical function
 * beside it.
 */
#ifndef DEVICES_H
#define DEVICES_H

#include "sysfs.h"

#include <systemd/sd-event.h>

/* Calls `visit` with the directory of each device of the subsystem, which is free of links. */
void devices_each(const char* subsystem, sysfs_visit* visit, void* data);

/* Has `change` called each time that a device is noted, to have a scan made. */
void devices_on_change(void (*change)(void));

/* Makes a device due; all if it is null. A directory that has gone only asks for a scan. */
void devices_note(const char* device);

/* Watches and notes the devices as long as the loop exists. Returns 0 or a negative errno. */
int devices_watch(sd_event* event);

bool devices_is_due(const char* device);

/* Empties the set, after a scan. */
void devices_forget(void);

#endif
