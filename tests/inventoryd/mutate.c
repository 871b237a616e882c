/*
 * Has the daemon's readers read the records of two machines again and again, until so many files
 * have been changed.
 *
 *     mutate MAKE COUNT [SEED]
 *
 * One file in two is changed as it is read: some of its bytes, or its length. Nothing is published.
 */
#define _XOPEN_SOURCE 700 /* random */

#include "devices.h"
#include "inventory.h"

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
    static const char* const names[] = {"server", "functions"};
    char records[] = "/tmp/records-XXXXXX";
    char text[256];
    if (argc < 3 || mkdtemp(records) == NULL ||
        snprintf(text, sizeof text, "%s %s", argv[1], records) >= (int)sizeof text ||
        system(text) != 0)
    {
        return 2;
    }
    sysfs_root = text;
    sysfs_serials = true;
    object_is_unpublished = true;
    srandom(argc > 3 ? (unsigned int)strtoul(argv[3], NULL, 10) : 1);
    for (size_t i = 0; i < sizeof names / sizeof *names; ++i)
    {
        const unsigned long wanted = mutations + strtoul(argv[2], NULL, 10) / 2;
        snprintf(text, sizeof text, "%s/%s", records, names[i]);
        while (mutations < wanted)
        {
            devices_note(NULL);
            scan_all();
        }
    }
    printf("%lu mutations\n", mutations);
    snprintf(text, sizeof text, "rm -rf %s", records);
    return system(text);
}
