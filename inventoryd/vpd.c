#include "vpd.h"

#include "sysfs.h"

#include <stdio.h>
#include <string.h>

/* Tags of large items; a small item's tag has bit 7 clear. */
enum
{
    large_item = 0x80,
    product_name = 0x82,
    read_only_fields = 0x90,
    most_bytes = 4096 /* what is behind has never been of interest */
};

struct vpd
{
    unsigned char bytes[most_bytes];
    size_t size;
};

static void read_vpd(struct vpd* vpd, const char* function)
{
    vpd->size = sysfs_bytes(function, "vpd", vpd->bytes, sizeof vpd->bytes);
}

/* The item with this tag; null if there is none before the first that isn't well-formed. */
static const unsigned char* find_item(const struct vpd* vpd, unsigned int tag, size_t* size)
{
    size_t at = 0;
    while (at + 3 <= vpd->size && (vpd->bytes[at] & large_item) != 0)
    {
        const size_t length = vpd->bytes[at + 1] | (size_t)vpd->bytes[at + 2] << 8;
        if (length > vpd->size - at - 3)
        {
            break;
        }
        if (vpd->bytes[at] == tag)
        {
            *size = length;
            return vpd->bytes + at + 3;
        }
        at += 3 + length;
    }
    return NULL;
}

/* Printable ASCII without the spaces at its end. */
static void copy_text(char text[vpd_text_size], const unsigned char* bytes, size_t size)
{
    size_t length = 0;
    while (length < size && length < vpd_text_size - 1 && bytes[length] >= ' ' &&
           bytes[length] <= '~')
    {
        text[length] = (char)bytes[length];
        ++length;
    }
    while (length > 0 && text[length - 1] == ' ')
    {
        --length;
    }
    text[length] = '\0';
}

static void put_field(struct object* object, const char* member, const struct vpd* vpd,
                      const char keyword[2])
{
    size_t size = 0;
    const unsigned char* item = find_item(vpd, read_only_fields, &size);
    for (size_t at = 0; item != NULL && at + 3 <= size;)
    {
        const size_t length = item[at + 2];
        if (length > size - at - 3)
        {
            break;
        }
        if (memcmp(item + at, keyword, 2) == 0)
        {
            char text[vpd_text_size];
            copy_text(text, item + at + 3, length);
            object_put_string(object, member, text);
        }
        at += 3 + length;
    }
}

void vpd_put(struct object* object, const char* function)
{
    struct vpd vpd;
    read_vpd(&vpd, function);
    put_field(object, "PartNumber", &vpd, "PN");
    put_field(object, "SerialNumber", &vpd, "SN");
}

bool vpd_product(const char* function, char text[vpd_text_size])
{
    struct vpd vpd;
    size_t size = 0;
    read_vpd(&vpd, function);
    const unsigned char* item = find_item(&vpd, product_name, &size);
    if (item != NULL)
    {
        copy_text(text, item, size);
    }
    return item != NULL && text[0] != '\0';
}
