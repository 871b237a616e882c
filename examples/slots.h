/*
 * The slots of network adapters: a NicSlot for each PCI device that is one. Its method
 * TriggerAdapterCoreDump reads the adapter's links, reads them again a second later, and answers
 * when both are in a file. One dump runs at a time; another call is refused meanwhile.
 */
#ifndef SLOTS_H
#define SLOTS_H

#include <gantry/gantry.h>

#include <systemd/sd-event.h>

/* Dumps are written to `directory`; without one, which is null, they are refused. The texts must
 * outlive the dispatch loop. */
void publish_slots(GANTRY_cpp_context* context, sd_event* event, const char* sys,
                   const char* directory);

/* Frees what a dump holds that is still running. The library has answered its call once the context
 * is freed. */
void slots_free(void);

#endif
