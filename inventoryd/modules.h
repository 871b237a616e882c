/*
 * The pluggable modules of network ports: an SFP, QSFP or QSFPD for each, by the standard that it
 * follows, named like its port. As a module is slow to read, that is done together with its port,
 * and for its readings once in half a minute. One that was pulled is found by that; one that was
 * plugged in is found when the link comes up.
 */
#ifndef MODULES_H
#define MODULES_H

#include "object.h"

/* The port is due if it has to be read. */
void modules_scan_port(const char* port, const char* device, uint64_t tag, bool is_due);

/* Whether a port, whose link has come up, may have a module that isn't known. */
bool modules_may_come(const struct object* port);

#endif
