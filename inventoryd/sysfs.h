/*
 * Reads the machine's description from sysfs, which has one value per file. A file that is missing
 * or has no such value is normal: the function then returns false, and the caller leaves the
 * property unchanged.
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

/* Joins two parts of a path; false if there is no room. */
bool sysfs_join(char path[sysfs_path_size], const char* directory, const char* name);

/* The file's first line, without the line break. */
bool sysfs_text(const char* directory, const char* file, char text[sysfs_text_size]);

/* The file's number, if the first line is one: in base 10, which also allows hexadecimal digits
 * after 0x, or in base 16. */
bool sysfs_number(const char* directory, const char* file, int base, uint64_t* number);

/* The file's first bytes, up to `most`; returns how many there were. */
size_t sysfs_bytes(const char* directory, const char* file, void* bytes, size_t most);

/* The last component of a symbolic link's target, such as a device's driver. */
bool sysfs_link_name(const char* directory, const char* link, char name[sysfs_path_size]);

bool sysfs_is_directory(const char* path);

/* Whether this is a recorded tree: plain files instead of a mounted sysfs. It also has the answers
 * that the kernel gives elsewhere; rtnetlink.h and ethtool.h say in which files. */
bool sysfs_is_recorded(const char* sys);

/* Calls `visit` with the path and name of each entry, sorted by name. */
void sysfs_each(const char* directory,
                void (*visit)(void* data, const char* path, const char* name), void* data);

#endif
