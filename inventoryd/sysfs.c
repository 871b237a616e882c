#define _POSIX_C_SOURCE 200809L /* strdup */

#include "sysfs.h"

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

const char* sysfs_name(const char* path)
{
    const char* slash = strrchr(path, '/');
    return slash != NULL ? slash + 1 : path;
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
    const char* last = sysfs_name(name);
    memmove(name, last, strlen(last) + 1);
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
void sysfs_each(const char* directory, const char* below, sysfs_visit* visit, void* data)
{
    char** names = NULL;
    size_t count = 0;
    char path[sysfs_path_size];
    DIR* opened = sysfs_join(path, directory, below) ? opendir(path) : NULL;
    if (opened == NULL)
    {
        return;
    }
    for (const struct dirent* entry = NULL; (entry = readdir(opened)) != NULL;)
    {
        char** more = entry->d_name[0] != '.' ? realloc(names, (count + 1) * sizeof *names) : NULL;
        names = more != NULL ? more : names;
        if (more != NULL && (names[count] = strdup(entry->d_name)) != NULL)
        {
            ++count;
        }
    }
    closedir(opened);
    if (count > 0)
    {
        qsort(names, count, sizeof *names, compare);
    }
    for (size_t i = 0; i < count; ++i)
    {
        char found[sysfs_path_size];
        if (sysfs_join(found, path, names[i]))
        {
            visit(data, found);
        }
        free(names[i]);
    }
    free(names);
}

void sysfs_put(struct object* object, const char* directory, const struct row* rows)
{
    for (const struct row* each = rows; each->member != NULL; ++each)
    {
        char text[sysfs_text_size];
        uint64_t number = 0;
        const char type = object_type(object, each->member);
        if (type == 's' && sysfs_text(directory, each->file, text))
        {
            object_put_string(object, each->member, text);
        }
        if (type == 's' || type == '\0' ||
            !sysfs_number(directory, each->file, each->form == row_hexadecimal ? 16 : 10, &number))
        {
            continue;
        }
        if (each->form < row_counter)
        {
            object_put_number(object, each->member, number);
            continue;
        }
        number = number == UINT64_MAX          ? number
                 : each->form == row_words     ? number * 4
                 : each->form == row_kilobytes ? number / 256
                                               : number;
        object_put_counter(object, each->member, number);
    }
}
