#define _POSIX_C_SOURCE 200809L /* O_CLOEXEC, O_NOFOLLOW */

#include "dump.h"

#include "pci_interfaces.h"
#include "sysfs.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static const char* const values[] = {
    "operstate",
    "carrier",
    "carrier_changes",
    "speed",
    "duplex",
    "mtu",
    "statistics/rx_packets",
    "statistics/rx_errors",
    "statistics/rx_dropped",
    "statistics/tx_packets",
    "statistics/tx_errors",
    "statistics/tx_dropped",
};

static void dump_link(void* text, const char* interface, const char* name)
{
    for (size_t i = 0; i < sizeof values / sizeof *values; ++i)
    {
        char value[sysfs_text_size];
        if (sysfs_text(interface, values[i], value))
        {
            fprintf(text, "%s %s %s\n", name, values[i], value);
        }
    }
}

void dump_links(FILE* text, const char* device)
{
    pci_each_interface(device, dump_link, text);
}

int dump_save(const char* path, const char* text, size_t size)
{
    char fresh[sysfs_path_size];
    if (snprintf(fresh, sizeof fresh, "%s.new", path) >= (int)sizeof fresh)
    {
        return ENAMETOOLONG;
    }
    unlink(fresh); /* of a host that was killed */
    const int fd = open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
    {
        return errno;
    }
    const ssize_t written = write(fd, text, size);
    int error = written < 0 ? errno : (size_t)written < size ? ENOSPC : 0;
    close(fd);
    if (error == 0 && rename(fresh, path) == 0)
    {
        return 0;
    }
    error = error != 0 ? error : errno;
    unlink(fresh);
    return error;
}
