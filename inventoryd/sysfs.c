#define _POSIX_C_SOURCE 200809L /* strdup */

#include "sysfs.h"

#include "record.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

const char* sysfs_root = "/sys";
bool sysfs_serials;

bool sysfs_is_recorded(void)
{
    return strcmp(sysfs_root, "/sys") != 0;
}

bool sysfs_join(char path[sysfs_path_size], const char* directory, const char* name)
{
    const int length = snprintf(path, sysfs_path_size, "%s/%s", directory, name);
    return length > 0 && length < sysfs_path_size;
}

size_t sysfs_bytes(const char* directory, const char* file, void* bytes, size_t most)
{
    char path[sysfs_path_size];
    struct stat status;
    /* Opening a FIFO would wait for its writer. */
    const int fd =
        sysfs_join(path, directory, file) ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1;
    if (fd < 0)
    {
        return 0;
    }
    size_t size = 0;
    ssize_t count = -1;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
        (sysfs_serials || (status.st_mode & S_IROTH) != 0))
    {
        while (size < most && (count = read(fd, (char*)bytes + size, most - size)) > 0)
        {
            size += (size_t)count;
        }
    }
    close(fd);
    if (count < 0)
    {
        return 0;
    }
    record_file(path, bytes, size, status.st_mode);
    return size;
}

bool sysfs_text(const char* directory, const char* file, char text[sysfs_text_size])
{
    const size_t size = sysfs_bytes(directory, file, text, sysfs_text_size - 1);
    text[size] = '\0';
    text[strcspn(text, "\n")] = '\0';
    const size_t leading = strspn(text, " ");
    size_t length = strlen(text + leading);
    while (length > 0 && text[leading + length - 1] == ' ')
    {
        --length;
    }
    memmove(text, text + leading, length);
    text[length] = '\0';
    return size > 0;
}

bool sysfs_number(const char* directory, const char* file, int base, uint64_t* number)
{
    char text[sysfs_text_size];
    if (!sysfs_text(directory, file, text))
    {
        return false;
    }
    const bool marked = base == 10 && strncmp(text, "0x", 2) == 0;
    const char* digits = marked ? text + 2 : text;
    const bool hexadecimal = marked || base == 16;
    const size_t length = strspn(digits, hexadecimal ? "0123456789abcdefABCDEF" : "0123456789");
    errno = 0;
    *number = strtoull(digits, NULL, hexadecimal ? 16 : 10);
    return length > 0 && digits[length] == '\0' && errno == 0;
}

bool sysfs_link_name(const char* directory, const char* link, char name[sysfs_path_size])
{
    char path[sysfs_path_size];
    const ssize_t length =
        sysfs_join(path, directory, link) ? readlink(path, name, sysfs_path_size - 1) : -1;
    if (length < 0)
    {
        return false;
    }
    name[length] = '\0';
    record_link(path, name);
    const char* slash = strrchr(name, '/');
    if (slash != NULL)
    {
        memmove(name, slash + 1, strlen(slash));
    }
    return true;
}

bool sysfs_has_directory(const char* directory, const char* name)
{
    char path[sysfs_path_size];
    struct stat status;
    if (!sysfs_join(path, directory, name) || stat(path, &status) != 0 || !S_ISDIR(status.st_mode))
    {
        return false;
    }
    record_directory(path);
    return true;
}

static int compare(const void* left, const void* right)
{
    return strcmp(*(char* const*)left, *(char* const*)right);
}

/* Not by scandir, which what stands in for sysfs in a test can't see. */
void sysfs_each(const char* directory,
                void (*visit)(void* data, const char* path, const char* name), void* data)
{
    char** names = NULL;
    size_t count = 0;
    DIR* opened = opendir(directory);
    for (const struct dirent* entry = NULL; opened != NULL && (entry = readdir(opened)) != NULL;)
    {
        char** more = entry->d_name[0] != '.' ? realloc(names, (count + 1) * sizeof *names) : NULL;
        names = more != NULL ? more : names;
        if (more != NULL && (names[count] = strdup(entry->d_name)) != NULL)
        {
            ++count;
        }
    }
    if (opened != NULL)
    {
        closedir(opened);
    }
    if (count > 0)
    {
        qsort(names, count, sizeof *names, compare);
    }
    for (size_t i = 0; i < count; ++i)
    {
        char path[sysfs_path_size];
        if (sysfs_join(path, directory, names[i]))
        {
            visit(data, path, names[i]);
        }
        free(names[i]);
    }
    free(names);
}
