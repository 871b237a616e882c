/*
 * Reads the machine's description from sysfs, which has one value per file, or from a record of it,
 * a tree of plain files that another run has written. A file that is missing or has no such value
 * is normal: the function then returns false, and the caller leaves the property unchanged.
 *
 * What only root may read must not reach everyone over the bus. A file that isn't readable by all
 * therefore counts as missing, unless `sysfs_serials` is set.
 */
#ifndef SYSFS_H
#define SYSFS_H

#include "object.h"

#include <sys/types.h>

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

/* The last component of a path. */
const char* sysfs_name(const char* path);

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

/* Calls `visit` with the path of each entry of a directory below another one, sorted by name. */
typedef void sysfs_visit(void* data, const char* path);
void sysfs_each(const char* directory, const char* below, sysfs_visit* visit, void* data);

/* A property and the file with its value, a text or a number as the property's type says. */
struct row
{
    const char* member;
    const char* file;
    enum
    {
        row_plain,
        row_hexadecimal, /* without 0x */
        row_counter,     /* as object_put_counter has it */
        row_words,       /* a counter of data in words of four bytes, for a property in bytes */
        row_kilobytes    /* the same for a property in KiB */
    } form;
};

/* Puts the properties whose files are in the directory; the rows end with an empty one. */
void sysfs_put(struct object* object, const char* directory, const struct row* rows);

/*
 * Starts a record: a directory with what the readers have read, each file below the path that it
 * has below /sys, with its mode, and beside it what the kernel answers otherwise, as the manual
 * page says. `inventoryd --root` publishes it elsewhere.
 *
 * Unless serial numbers are asked for, the files that only root may read are left out, and those
 * that all may read are recorded with `X` for each letter. Returns 0 or an errno.
 */
int record_start(const char* directory);

/* Whether all has been written so far. */
bool record_is_whole(void);

/* These do nothing if no record is written. `path` begins with sysfs_root. A failure is logged. */
void record_file(const char* path, const void* bytes, size_t size, mode_t mode);
void record_answer(const char* directory, const char* file, const void* bytes, size_t size);
void record_link(const char* path, const char* target);
void record_directory(const char* path);

#endif
