#include "card.h"

#include <string.h>

/* Tags of large items; a small item's tag has bit 7 clear. */
enum
{
    large_item = 0x80,
    product_name = 0x82,
    read_only_fields = 0x90,
    most_bytes = 4096, /* what is behind has never been of interest */
    header_size = 3
};

/* Printable ASCII without the spaces at its end; false if that is none. */
static bool put_text(struct object* object, const char* member, const unsigned char* bytes,
                     size_t size)
{
    char text[256];
    size_t length = 0;
    while (length < size && length < sizeof text - 1 && bytes[length] >= ' ' &&
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
    object_put_string(object, member, length > 0 ? text : NULL);
    return length > 0;
}

/* A field is a keyword of two letters, the length in a byte, and so many bytes. */
static bool put_fields(struct object* object, const unsigned char* bytes, size_t size)
{
    bool has_part_number = false;
    for (size_t at = 0; at + header_size <= size && at + header_size + bytes[at + 2] <= size;
         at += header_size + bytes[at + 2])
    {
        const unsigned char* field = bytes + at;
        if (memcmp(field, "PN", 2) == 0)
        {
            has_part_number = put_text(object, "PartNumber", field + header_size, field[2]);
        }
        else if (memcmp(field, "SN", 2) == 0)
        {
            (void)put_text(object, "SerialNumber", field + header_size, field[2]);
        }
    }
    return has_part_number;
}

/* A large item is a tag, the length in two bytes, and so many bytes. */
bool vpd_put(struct object* object, const char* function)
{
    unsigned char bytes[most_bytes];
    const size_t size = sysfs_bytes(function, "vpd", bytes, sizeof bytes);
    bool has_part_number = false;
    size_t length = 0;
    for (size_t at = 0; at + header_size <= size && (bytes[at] & large_item) != 0;
         at += header_size + length)
    {
        const unsigned char* item = bytes + at;
        length = item[1] | (size_t)item[2] << 8;
        if (length > size - header_size - at)
        {
            break;
        }
        if (item[0] == product_name)
        {
            (void)put_text(object, "MarketingName", item + header_size, length);
        }
        else if (item[0] == read_only_fields)
        {
            has_part_number = put_fields(object, item + header_size, length);
        }
    }
    return has_part_number;
}
