#define _POSIX_C_SOURCE 200809L /* O_CLOEXEC, symlink */

#include "sysfs.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

static const char* root; /* null if no record is written */
static bool is_whole = true;

int record_start(const char* directory)
{
    if (mkdir(directory, 0700) != 0)
    {
        return errno;
    }
    root = directory;
    return 0;
}

bool record_is_whole(void)
{
    return is_whole;
}

/* The path in the record, whose directories it makes. */
static bool place(char path[sysfs_path_size], const char* source)
{
    const size_t length = strlen(sysfs_root);
    if (root == NULL || strncmp(source, sysfs_root, length) != 0 ||
        !sysfs_join(path, root, source + length))
    {
        return false;
    }
    for (char* slash = path + strlen(root) + 1; (slash = strchr(slash + 1, '/')) != NULL;)
    {
        *slash = '\0';
        mkdir(path, 0700);
        *slash = '/';
    }
    return true;
}

static void check(const char* path, bool is_done)
{
    if (!is_done)
    {
        is_whole = false;
        fprintf(stderr, SD_WARNING "%s: %s\n", path, strerror(errno));
    }
}

static bool has_serial(const char* path)
{
    const char* name = sysfs_name(path);
    return strcmp(name, "serial") == 0 || strcmp(name, "serial_number") == 0;
}

void record_file(const char* source, const void* bytes, size_t size, mode_t mode)
{
    char path[sysfs_path_size];
    char blanks[sysfs_text_size];
    if (!place(path, source))
    {
        return;
    }
    if (!sysfs_serials && has_serial(path))
    {
        size = size > 0 && size <= sizeof blanks ? size - 1 : 0; /* without the line break */
        bytes = memset(blanks, 'X', size);
    }
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    errno = fd >= 0 ? ENOSPC : errno; /* what a short write means, which sets nothing */
    check(path, fd >= 0 && write(fd, bytes, size) == (ssize_t)size &&
                    fchmod(fd, (mode & 0444) | 0200) == 0);
    if (fd >= 0)
    {
        close(fd);
    }
}

void record_answer(const char* directory, const char* file, const void* bytes, size_t size)
{
    char path[sysfs_path_size];
    if (sysfs_join(path, directory, file))
    {
        record_file(path, bytes, size, 0444);
    }
}

void record_link(const char* source, const char* target)
{
    char path[sysfs_path_size];
    if (place(path, source))
    {
        check(path, symlink(target, path) == 0 || errno == EEXIST);
    }
}

void record_directory(const char* source)
{
    char path[sysfs_path_size];
    if (place(path, source))
    {
        check(path, mkdir(path, 0700) == 0 || errno == EEXIST);
    }
}
