/*
 * Reads the machine's description from sysfs, which has one value per file, or from a record of it:
 * a tree of plain files that another run has written (record.h). A file that is missing or has no
 * such value is normal: the function then returns false, and the caller leaves the property
 * unchanged.
 *
 * What only root may read must not reach everyone over the bus. A file that isn't readable by all
 * therefore counts as missing, unless `sysfs_serials` is set.
 */
#ifndef SYSFS_H
#define SYSFS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* A file of sysfs is a page at most. */
enum
{
    sysfs_text_size = 4097,
    sysfs_path_size = 4096
};

extern const char* sysfs_root; /* "/sys", or the directory of a record */
extern bool sysfs_serials;     /* whether serial numbers and what else only root may read count */

/* Whether `sysfs_root` is a record. The kernel is then asked for nothing. */
bool sysfs_is_recorded(void);

/* Joins two parts of a path; false if there is no room. */
bool sysfs_join(char path[sysfs_path_size], const char* directory, const char* name);

/* The file's first line, without the line break and spaces around it. */
bool sysfs_text(const char* directory, const char* file, char text[sysfs_text_size]);

/* The file's number, if the first line is one: in base 10, which also allows hexadecimal digits
 * after 0x, or in base 16. */
bool sysfs_number(const char* directory, const char* file, int base, uint64_t* number);

/* The file's first bytes, up to `most`; returns how many there were. It must be a plain file: what
 * else may be in a tree, such as a FIFO, could keep the reader waiting. */
size_t sysfs_bytes(const char* directory, const char* file, void* bytes, size_t most);

/* The last component of a symbolic link's target, such as a device's driver. */
bool sysfs_link_name(const char* directory, const char* link, char name[sysfs_path_size]);

/* Whether the directory has a directory of that name. */
bool sysfs_has_directory(const char* directory, const char* name);

/* Calls `visit` with the path and name of each entry, sorted by name. */
void sysfs_each(const char* directory,
                void (*visit)(void* data, const char* path, const char* name), void* data);

#endif
