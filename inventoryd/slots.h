/*
 * The slots of network adapters: a NicSlot for each PCI device that is a network controller. Its
 * method TriggerAdapterCoreDump reads the adapter's links, reads them again a second later, and
 * answers when both readings are in a file. One dump runs at a time; another call is refused
 * meanwhile.
 */
#ifndef SLOTS_H
#define SLOTS_H

#include <gantry/gantry.h>

#include <systemd/sd-event.h>

/* Dumps are written to `directory`; without one, which is null, they are refused. The texts must
 * outlive the dispatch loop. */
void publish_slots(GANTRY_cpp_context* context, sd_event* event, const char* sys,
                   const char* directory);

/* Frees what a running dump holds. Call it after the context is freed: then the library has
 * answered the call that waits for the dump. */
void slots_free(void);

#endif
