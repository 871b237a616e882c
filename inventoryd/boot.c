#define _POSIX_C_SOURCE 200809L /* siginfo_t for sd-event */

#include "devices.h"
#include "inventory.h"
#include "sysfs.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>

#ifdef HAVE_EFIVAR
#include <efivar/efivar.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

/* The vendor of the firmware's own variables. Variables of other vendors may have the same names.
 */
#define GLOBAL "-8be4df61-93ca-11d2-aa0d-00e098032b8c"

static const char variables[] = "firmware/efi/efivars";
static const char sequence_key[] = "BootSequence.UEFI";

static struct kind sequence_kind = {OBJECT_KIND(system, BootSequence)};
static struct kind option_kind = {OBJECT_KIND(system, BootDevice)};

enum
{
    most_bytes = 16384, /* of a variable */
    name_size = sizeof "Boot0000",
    text_size = 1024
};

/* A variable's value: numbers have their lowest byte first. */
struct value
{
    unsigned char bytes[most_bytes];
    size_t size;
};

/* The numbers of the load options, in the order in which the firmware tries them, and what it tries
 * first at the next start only. */
static struct value order;
static bool has_next;
static uint16_t next;

static uint16_t number_at(const struct value* value, size_t at)
{
    return (uint16_t)(value->bytes[at] | value->bytes[at + 1] << 8);
}

/* False if the variable is missing or empty, or so long that its end may be missing. */
static bool read_variable(struct value* value, const char* name)
{
    const size_t attributes_size = 4; /* before each value */
    char file[128];
    snprintf(file, sizeof file, "%s/%s" GLOBAL, variables, name);
    const size_t size = sysfs_bytes(sysfs_root, file, value->bytes, sizeof value->bytes);
    if (size <= attributes_size || size == sizeof value->bytes)
    {
        return false;
    }
    value->size = size - attributes_size;
    memmove(value->bytes, value->bytes + attributes_size, value->size);
    return true;
}

static bool read_number(const char* name, uint16_t* number)
{
    struct value value;
    if (!read_variable(&value, name) || value.size != 2)
    {
        return false;
    }
    *number = number_at(&value, 0);
    return true;
}

/* The option's place in the order, counted from 1; 0 if it isn't there. */
static size_t index_of(uint16_t option)
{
    for (size_t at = 0; at < order.size; at += 2)
    {
        if (number_at(&order, at) == option)
        {
            return at / 2 + 1;
        }
    }
    return 0;
}

/* The option's place at the next start, when the firmware tries BootNext before all others. */
static size_t pending_index_of(uint16_t option)
{
    const size_t place = index_of(option);
    const size_t former = index_of(next);
    if (has_next && option == next)
    {
        return 1;
    }
    return !has_next || place == 0 || (former != 0 && former < place) ? place : place + 1;
}

static size_t put_utf8(char* text, uint32_t point)
{
    static const unsigned int leads[] = {0, 0xC0, 0xE0, 0xF0};
    const unsigned int tails = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    text[0] = (char)(leads[tails] | point >> 6 * tails);
    for (unsigned int i = 1; i <= tails; ++i)
    {
        text[i] = (char)(0x80 | (point >> 6 * (tails - i) & 0x3F));
    }
    return tails + 1;
}

/* Null-terminated UTF-16 as UTF-8, cut where there is no more room. Half a surrogate pair becomes a
 * replacement character. Returns where the text ends in the value, or 0 if it doesn't end there. */
static size_t copy_text(char text[text_size], const struct value* value, size_t at)
{
    const uint32_t replacement = 0xFFFD;
    const size_t most_utf8 = 4;
    size_t size = 0;
    for (uint32_t point = 1; point != 0; at += 2)
    {
        if (at + 2 > value->size)
        {
            return 0;
        }
        point = number_at(value, at);
        if (point >= 0xD800 && point < 0xE000)
        {
            const uint32_t low = at + 4 <= value->size ? number_at(value, at + 2) : 0;
            const bool is_pair = point < 0xDC00 && low >= 0xDC00 && low < 0xE000;
            point = is_pair ? 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00) : replacement;
            at += is_pair ? 2 : 0;
        }
        /* There is always room for the last byte, a zero. */
        size += point == 0 || size + most_utf8 < text_size ? put_utf8(text + size, point) : 0;
    }
    return at;
}

/* The text of a device path, as UEFI writes it. The library trusts a path's nodes to be what their
 * types say, and a variable may hold anything. So it runs in a process of its own, which may crash.
 */
static void put_path(struct object* object, const void* bytes, size_t size)
{
#ifdef HAVE_EFIVAR
    const unsigned int longest_time = 2; /* in seconds */
    char text[text_size];
    int ends[2];
    int status = -1;
    if (size == 0 || pipe(ends) != 0)
    {
        return;
    }
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_DUMPABLE, 0);
        alarm(longest_time);
        void* const out = text; // unsigned char* to libefivar 38, char* to 37
        const ssize_t length = efidp_format_device_path(out, text_size, bytes, (ssize_t)size);
        _exit(length > 0 && length < text_size && write(ends[1], text, (size_t)length) == length
                  ? EXIT_SUCCESS
                  : EXIT_FAILURE);
    }
    close(ends[1]);
    const ssize_t length = child > 0 ? read(ends[0], text, text_size - 1) : -1;
    close(ends[0]);
    if (child > 0 && waitpid(child, &status, 0) == child && status == 0 && length > 0)
    {
        text[length] = '\0';
        object_put_string(object, "oBootPath", text);
    }
#else
    (void)object, (void)bytes, (void)size;
#endif
}

static void put_data(struct object* object, const unsigned char* bytes, size_t size)
{
    char text[2 * most_bytes];
    text[0] = '\0';
    for (size_t i = 0; i < size; ++i)
    {
        snprintf(text + 2 * i, 3, "%02X", bytes[i]);
    }
    object_put_string(object, "oBootData", text);
}

static void scan_option(uint16_t number, const char* name)
{
    const unsigned char active = 1;
    const size_t path_size_at = 4;
    const size_t header_size = 6;
    struct value value;
    char description[text_size];
    size_t path = 0;
    if (!read_variable(&value, name) || value.size < header_size ||
        (path = copy_text(description, &value, header_size)) == 0)
    {
        return;
    }
    const size_t path_size = number_at(&value, path_size_at);
    struct object* object =
        path_size <= value.size - path ? object_due(&option_kind, name, variables) : NULL;
    if (object == NULL)
    {
        return;
    }
    object_put_number(object, "UniqueID", number);
    object_put_string(object, "oBootType", "UEFI");
    put_path(object, value.bytes + path, path_size);
    put_data(object, value.bytes + path + path_size, value.size - path - path_size);
    object_put_string(object, "obootOptionReference", name);
    object_put_number(object, "iCurrentIndex", index_of(number));
    object_put_number(object, "iPendingIndex", pending_index_of(number));
    object_put_switch(object, "iEnabled", true, (value.bytes[0] & active) != 0);
    object_put_format(object, "hdr_DOT_fqdd", "BootDevice.%s", name);
    object_put_format(object, "hdr_DOT_key", "BootDevice.%s", name);
    object_put_string(object, "hdr_DOT_objName", description);
    object_put_string(object, "ParentObjectKey", sequence_key);
    object_complete(object);
}

static void visit_variable(void* data, const char* path)
{
    const char* file = sysfs_name(path);
    char name[name_size] = "";
    (void)data;
    (void)sscanf(file, "Boot%4[0-9A-F]", name + strlen("Boot"));
    memcpy(name, "Boot", strlen("Boot"));
    /* The rest of the name excludes other variables, such as BootCurrent, and other vendors. */
    if (strlen(name) == name_size - 1 && strncmp(file, name, name_size - 1) == 0 &&
        strcmp(file + name_size - 1, GLOBAL) == 0)
    {
        scan_option((uint16_t)strtoul(name + strlen("Boot"), NULL, 16), name);
    }
}

static void scan_sequence(void)
{
    uint16_t current = 0;
    static char keys[most_bytes / 2 * sizeof ",BootDevice.Boot0000"];
    char* end = keys;
    struct object* object = object_due(&sequence_kind, "", variables);
    if (object == NULL)
    {
        return;
    }
    for (size_t at = 0; at < order.size; at += 2)
    {
        end += snprintf(end, sizeof ",BootDevice.Boot0000", "%sBootDevice.Boot%04X",
                        at == 0 ? "" : ",", number_at(&order, at));
    }
    object_put_string(object, "hdr_DOT_fqdd", sequence_key);
    object_put_string(object, "hdr_DOT_key", sequence_key);
    object_put_string(object, "hdr_DOT_objName", "UEFI boot sequence");
    object_put_string(object, "hdr_DOT_objDependencies", keys);
    if (read_number("BootCurrent", &current))
    {
        object_put_number(object, "iCurrentIndex", index_of(current));
    }
    object_complete(object);
}

void scan_boot(void)
{
    has_next = read_number("BootNext", &next);
    if (!read_variable(&order, "BootOrder") || order.size % 2 != 0)
    {
        order.size = 0;
    }
    if (order.size > 0)
    {
        scan_sequence();
    }
    sysfs_each(sysfs_root, variables, visit_variable, NULL);
}

/* The event loop calls this. */
static int on_variable(sd_event_source* source, const struct inotify_event* event, void* data)
{
    (void)source, (void)event, (void)data;
    devices_note(variables);
    return 0;
}

int boot_watch(sd_event* event)
{
    const int result = sd_event_add_inotify(event, NULL, "/sys/firmware/efi/efivars",
                                            IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_TO,
                                            on_variable, NULL);
    return result == -ENOENT ? 0 : result;
}
