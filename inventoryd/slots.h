/*
 * The slots of network adapters: a NicSlot for each card. Its method TriggerAdapterCoreDump has the
 * driver make a dump of the adapter, as `ethtool -w` does, and answers when the dump is in a file.
 * As a driver may take seconds, a process of its own asks it. One dump runs at a time; another call
 * is refused meanwhile, and so is one for an adapter whose driver makes none.
 */
#ifndef SLOTS_H
#define SLOTS_H

#include "card.h"

#include <systemd/sd-event.h>

/* Dumps are written to `directory`; without one, which is null, they are refused. The text must
 * outlive the dispatch loop. */
void slots_open(sd_event* event, const char* directory);

/* Each card of a scan is named once or several times in a row. The end is after the objects' own.
 */
void slots_scan_card(const struct card* card);
void slots_end_scan(void);

/* Puts the width of the card's link and its maker's name for it, and the form of its slot; `length`
 * is the property with the slot's length. */
void slots_put_pci(struct object* object, const struct card* card, const char* length);

/* Frees what a running dump holds. Call it after the context is freed: then the library has
 * answered the call that waits for the dump. */
void slots_free(void);

#endif
