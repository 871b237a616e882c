/*
 * Reads a record with all of the daemon's readers, as often as is needed to change so many files.
 *
 *     mutate RECORD COUNT SEED
 *
 * One file in two is changed as it is read: some of its bytes, or its length. Nothing is published.
 */
#define _XOPEN_SOURCE 700 /* random */

#include "devices.h"
#include "inventory.h"
#include "object.h"
#include "sysfs.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static unsigned long mutations;

ssize_t __real_read(int fd, void* bytes, size_t size);
ssize_t __wrap_read(int fd, void* bytes, size_t size);

static size_t below(size_t limit)
{
    return (size_t)random() % limit;
}

ssize_t __wrap_read(int fd, void* bytes, size_t size)
{
    static const unsigned char edges[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, '\n', '-', '/'};
    ssize_t count = __real_read(fd, bytes, size);
    if (count <= 0 || below(2) == 0)
    {
        return count;
    }
    ++mutations;
    for (size_t changes = 1 + below(4); changes > 0; --changes)
    {
        unsigned char* byte = (unsigned char*)bytes + below((size_t)count);
        *byte = below(2) == 0 ? edges[below(sizeof edges)] : (unsigned char)below(256);
    }
    return below(8) == 0 ? (ssize_t)below((size_t)count) : count;
}

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        return 2;
    }
    const unsigned long wanted = strtoul(argv[2], NULL, 10);
    sysfs_root = argv[1];
    sysfs_serials = true;
    srandom((unsigned int)strtoul(argv[3], NULL, 10));
    object_is_unpublished = true;
    /* A record with nothing in it has nothing to change. */
    for (unsigned long rounds = 0; mutations < wanted && (rounds < 10 || mutations > 0); ++rounds)
    {
        devices_note(NULL);
        scan_all();
    }
    objects_free();
    printf("%lu mutations of %s\n", mutations, argv[1]);
    return 0;
}
