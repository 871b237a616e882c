#define _POSIX_C_SOURCE 200809L /* O_CLOEXEC, O_NOFOLLOW */

#include "dump.h"

#include "ethtool.h"
#include "sysfs.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum
{
    most_bytes = 256 << 20 /* what a driver says that it has isn't taken on trust */
};

static bool ask_size(const char* interface, struct ethtool_dump* dump)
{
    memset(dump, 0, sizeof *dump);
    dump->cmd = ETHTOOL_GET_DUMP_FLAG;
    return ethtool_ask_ioctl(interface, dump, sizeof *dump) && dump->len > 0 &&
           dump->len <= most_bytes;
}

bool dump_is_supported(const char* interface)
{
    struct ethtool_dump dump;
    return ask_size(interface, &dump);
}

static bool write_whole(int fd, const void* bytes, size_t size)
{
    while (size > 0)
    {
        const ssize_t written = write(fd, bytes, size);
        if (written < 0)
        {
            return false;
        }
        bytes = (const char*)bytes + written;
        size -= (size_t)written;
    }
    return true;
}

/* Returns 0 or an errno. */
static int write_dump(int fd, const char* heading, const char* interface)
{
    struct ethtool_dump request;
    if (!ask_size(interface, &request))
    {
        return EOPNOTSUPP;
    }
    const size_t size = sizeof request + request.len;
    struct ethtool_dump* dump = malloc(size);
    if (dump == NULL)
    {
        return ENOMEM;
    }
    *dump = request;
    dump->cmd = ETHTOOL_GET_DUMP_DATA;
    int error = 0;
    if (!ethtool_ask_ioctl(interface, dump, size))
    {
        error = EIO;
    }
    else if (!write_whole(fd, heading, strlen(heading)) ||
             !write_whole(fd, dump->data, request.len))
    {
        error = errno;
    }
    free(dump);
    return error;
}

int dump_save(const char* path, const char* heading, const char* interface)
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
    int error = write_dump(fd, heading, interface);
    error = close(fd) != 0 && error == 0 ? errno : error;
    if (error == 0 && rename(fresh, path) == 0)
    {
        return 0;
    }
    error = error != 0 ? error : errno;
    unlink(fresh);
    return error;
}
