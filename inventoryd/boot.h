/*
 * The boot configuration of a machine with EFI firmware, from its variables. They aren't trusted: a
 * malformed one counts as a missing one.
 */
#ifndef BOOT_H
#define BOOT_H

#include <systemd/sd-event.h>

/* Calls `changed` for each change of a variable, as long as the loop exists. Returns 0, also where
 * there are no variables, or a negative errno. */
int boot_watch(sd_event* event, void (*changed)(void));

#endif
