/*
 * A dump of a network adapter: what its driver tells of its state to those who develop it, and a
 * file to keep it in.
 */
#ifndef DUMP_H
#define DUMP_H

#include <stdbool.h>
#include <stddef.h>

/* Whether the driver of the interface at this directory makes dumps. */
bool dump_is_supported(const char* interface);

/*
 * Writes `heading` and the driver's dump to the file, which only its owner may read. A link at its
 * path is replaced and not followed, and a reader finds either the former dump or the whole new
 * one. Returns 0 or an errno.
 */
int dump_save(const char* path, const char* heading, const char* interface);

#endif
