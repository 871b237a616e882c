#define _POSIX_C_SOURCE 200809L /* open_memstream */

#include "efi.h"

#include "sysfs.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The vendor of the firmware's own variables. Variables of other vendors may have the same names.
 */
#define GLOBAL "-8be4df61-93ca-11d2-aa0d-00e098032b8c"

static const char variables[] = "firmware/efi/efivars";

/* A variable's value, or the rest of it: the functions below take bytes from its front. */
struct bytes
{
    const unsigned char* data;
    size_t size;
};

enum
{
    attributes_size = 4, /* before each value */
    most_bytes = 65536
};

/* Reads a variable into `buffer`, into which `value` then points. False if it is missing or empty,
 * or if the buffer is full: then its end may be missing. */
static bool read_variable(const char* sys, const char* name, unsigned char buffer[most_bytes],
                          struct bytes* value)
{
    char file[128];
    snprintf(file, sizeof file, "%s/%s" GLOBAL, variables, name);
    const size_t size = sysfs_bytes(sys, file, buffer, most_bytes);
    if (size <= attributes_size || size == most_bytes)
    {
        return false;
    }
    value->data = buffer + attributes_size;
    value->size = size - attributes_size;
    return true;
}

static bool take_bytes(struct bytes* from, size_t size, struct bytes* taken)
{
    if (size > from->size)
    {
        return false;
    }
    taken->data = from->data;
    taken->size = size;
    from->data += size;
    from->size -= size;
    return true;
}

/* A number of one, two or four bytes, the lowest first. */
static bool take_number(struct bytes* from, size_t width, uint32_t* number)
{
    struct bytes digits;
    if (!take_bytes(from, width, &digits))
    {
        return false;
    }
    *number = 0;
    while (width > 0)
    {
        *number = *number << 8 | digits.data[--width];
    }
    return true;
}

static void write_utf8(FILE* out, uint32_t point)
{
    if (point < 0x80)
    {
        fputc((int)point, out);
        return;
    }
    const int tails = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    static const unsigned int leads[] = {0, 0xC0, 0xE0, 0xF0};
    fputc((int)(leads[tails] | point >> 6 * tails), out);
    for (int tail = tails - 1; tail >= 0; --tail)
    {
        fputc((int)(0x80 | (point >> 6 * tail & 0x3F)), out);
    }
}

/* Takes null-terminated UTF-16 and writes it as UTF-8. Half a surrogate pair becomes a replacement
 * character. If there is no null, nothing is taken or written. */
static bool take_text(struct bytes* from, FILE* out)
{
    enum
    {
        replacement = 0xFFFD
    };
    struct bytes rest = *from;
    uint32_t unit = 0;
    do
    {
        if (!take_number(&rest, 2, &unit))
        {
            return false;
        }
    } while (unit != 0);

    uint32_t high = 0;
    while (take_number(from, 2, &unit))
    {
        const bool is_high = unit >= 0xD800 && unit < 0xDC00;
        const bool is_low = unit >= 0xDC00 && unit < 0xE000;
        if (high != 0 && is_low)
        {
            write_utf8(out, 0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00));
            high = 0;
            continue;
        }
        if (high != 0)
        {
            write_utf8(out, replacement);
        }
        if (unit == 0)
        {
            break;
        }
        high = is_high ? unit : 0;
        if (!is_high)
        {
            write_utf8(out, is_low ? replacement : unit);
        }
    }
    return true;
}

static void write_hexadecimal(FILE* out, struct bytes bytes)
{
    for (size_t i = 0; i < bytes.size; ++i)
    {
        fprintf(out, "%02X", bytes.data[i]);
    }
}

/* Writes a device path up to its first malformed node. */
static void write_path(FILE* out, struct bytes path)
{
    enum
    {
        header = 4,
        media = 4,
        media_file = 4,
        end_of_path = 0x7F
    };
    const char* separator = "";
    uint32_t type = 0;
    uint32_t subtype = 0;
    uint32_t length = 0;
    struct bytes data;
    while (take_number(&path, 1, &type) && take_number(&path, 1, &subtype) &&
           take_number(&path, 2, &length) && type != end_of_path && length >= header &&
           take_bytes(&path, length - header, &data))
    {
        fputs(separator, out);
        separator = "/";
        if (type == media && subtype == media_file && take_text(&data, out))
        {
            continue;
        }
        fprintf(out, "Path(%u,%u,", type, subtype);
        write_hexadecimal(out, data);
        fputc(')', out);
    }
}

/* The text that `write` makes of the bytes; null, which means no text, if memory runs out. */
static char* text_of(void (*write)(FILE* out, struct bytes bytes), struct bytes bytes)
{
    char* text = NULL;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    if (out != NULL)
    {
        write(out, bytes);
        fclose(out);
    }
    return text;
}

bool efi_read_boot_order(const char* sys, struct efi_boot_order* order)
{
    unsigned char buffer[most_bytes];
    struct bytes value;
    uint32_t number = 0;
    if (!read_variable(sys, "BootOrder", buffer, &value) || value.size % 2 != 0 ||
        value.size / 2 > efi_most_options)
    {
        return false;
    }
    order->count = 0;
    while (take_number(&value, 2, &number))
    {
        order->numbers[order->count++] = (uint16_t)number;
    }
    return true;
}

static bool read_option_number(const char* sys, const char* name, uint16_t* number)
{
    unsigned char buffer[most_bytes];
    struct bytes value;
    uint32_t read = 0;
    if (!read_variable(sys, name, buffer, &value) || value.size != 2 ||
        !take_number(&value, 2, &read))
    {
        return false;
    }
    *number = (uint16_t)read;
    return true;
}

bool efi_read_boot_current(const char* sys, uint16_t* number)
{
    return read_option_number(sys, "BootCurrent", number);
}

bool efi_read_boot_next(const char* sys, uint16_t* number)
{
    return read_option_number(sys, "BootNext", number);
}

void efi_option_name(uint16_t number, char name[efi_name_size])
{
    snprintf(name, efi_name_size, "Boot%04X", (unsigned int)number);
}

bool efi_read_load_option(const char* sys, uint16_t number, struct efi_load_option* option)
{
    enum
    {
        active = 1
    };
    unsigned char buffer[most_bytes];
    char name[efi_name_size];
    struct bytes value;
    struct bytes path;
    uint32_t attributes = 0;
    uint32_t path_size = 0;
    efi_option_name(number, name);
    if (!read_variable(sys, name, buffer, &value) || !take_number(&value, 4, &attributes) ||
        !take_number(&value, 2, &path_size))
    {
        return false;
    }
    size_t size = 0;
    FILE* out = open_memstream(&option->description, &size);
    if (out == NULL)
    {
        return false;
    }
    const bool whole = take_text(&value, out);
    fclose(out);
    if (!whole || !take_bytes(&value, path_size, &path))
    {
        free(option->description);
        return false;
    }
    option->path = text_of(write_path, path);
    option->data = text_of(write_hexadecimal, value);
    option->active = (attributes & active) != 0;
    return true;
}

void efi_free_load_option(struct efi_load_option* option)
{
    free(option->description);
    free(option->path);
    free(option->data);
}

struct visitor
{
    void (*visit)(void* data, uint16_t number);
    void* data;
};

static void visit_variable(void* data, const char* path, const char* file)
{
    const struct visitor* visitor = data;
    char name[efi_name_size];
    unsigned int number = 0;
    (void)path;
    if (sscanf(file, "Boot%4X", &number) != 1)
    {
        return;
    }
    /* Comparing the whole name excludes other variables, such as BootCurrent, and other vendors. */
    efi_option_name((uint16_t)number, name);
    if (strncmp(file, name, strlen(name)) == 0 && strcmp(file + strlen(name), GLOBAL) == 0)
    {
        visitor->visit(visitor->data, (uint16_t)number);
    }
}

void efi_each_load_option(const char* sys, void (*visit)(void* data, uint16_t number), void* data)
{
    struct visitor visitor = {visit, data};
    char directory[sysfs_path_size];
    if (sysfs_join(directory, sys, variables))
    {
        sysfs_each(directory, visit_variable, &visitor);
    }
}
