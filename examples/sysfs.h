/*
 * Reads the machine's own description from sysfs, one value a file. A file that is missing or
 * doesn't hold what is asked for is normal: the answer is then false, and the property that would
 * have taken the value keeps its initial one.
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

/* The file's first line, without its end. */
bool sysfs_text(const char* directory, const char* file, char text[sysfs_text_size]);

/* The file's number in these digits alone: base 10, which also allows hexadecimal ones behind 0x,
 * or base 16. */
bool sysfs_number(const char* directory, const char* file, int base, uint64_t* number);

/* The file's first bytes, up to `most`; returns how many there were. */
size_t sysfs_bytes(const char* directory, const char* file, void* bytes, size_t most);

/* The last name in what the symbolic link points to: a device's driver, say. */
bool sysfs_link_name(const char* directory, const char* link, char name[sysfs_path_size]);

bool sysfs_is_directory(const char* path);

/* Calls `visit` with the path and the name of each entry, in the order of their names. */
void sysfs_each(const char* directory,
                void (*visit)(void* data, const char* path, const char* name), void* data);

#endif
