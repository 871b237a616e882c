/*
 * What tells clients of the inventory as a whole: a HWISupport, whose isready becomes true once
 * everything is published, and a HWInventory, whose two status methods answer 0 from then on and 1
 * before. Both signal a change.
 */
#ifndef READINESS_H
#define READINESS_H

void readiness_publish(void);
void readiness_declare(void);

/* Sends HardwareInventoryChanged and Refresh. */
void readiness_signal_change(void);

#endif
