/*
 * A dump of a network adapter: the state of its links as text, and a file to keep it in.
 */
#ifndef DUMP_H
#define DUMP_H

#include <stddef.h>
#include <stdio.h>

/* Writes a line for each value of each link of a PCI device. */
void dump_links(FILE* text, const char* device);

/*
 * Replaces the file, which only its owner may read. A link at its path is replaced too and not
 * followed, and a reader finds either the former text or the whole new one. Returns 0 or an errno.
 */
int dump_save(const char* path, const char* text, size_t size);

#endif
