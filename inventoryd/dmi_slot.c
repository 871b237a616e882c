#include "card.h"

#include <stdio.h>
#include <string.h>

/* Where DMI has the fields in a record of type 9. */
enum
{
    at_length = 1,
    at_name = 4,
    at_type = 5,
    at_slot_length = 8,
    at_segment = 13,
    at_bus = 15,
    at_function = 16,
    least_length = 17
};

/* The text of that number, counted from 1, behind the fields. */
static void copy_text(char* text, size_t room, const unsigned char* bytes, size_t size,
                      unsigned int number)
{
    size_t at = bytes[at_length];
    text[0] = '\0';
    while (number > 1 && at < size)
    {
        number -= bytes[at++] == '\0' ? 1 : 0;
    }
    if (number == 1 && at < size)
    {
        snprintf(text, room, "%.*s", (int)(size - at), (const char*)bytes + at);
    }
}

static void visit(void* data, const char* path)
{
    static const char* const lengths[] = {NULL,   NULL,          NULL,         "Short",
                                          "Long", "2.5\" drive", "3.5\" drive"};
    struct object* object = data;
    struct pci_location location;
    unsigned char bytes[1024];
    size_t size = 0;
    char text[65];
    if (strncmp(sysfs_name(path), "9-", 2) != 0 ||
        (size = sysfs_bytes(path, "raw", bytes, sizeof bytes)) < least_length ||
        bytes[at_length] < least_length ||
        !pci_location_parse(sysfs_name(object->device), &location) ||
        (bytes[at_segment] | (unsigned int)bytes[at_segment + 1] << 8) != location.segment ||
        bytes[at_bus] != location.bus || bytes[at_function] >> 3U != location.device)
    {
        return;
    }
    const unsigned int length = bytes[at_slot_length];
    const char* length_name = length < sizeof lengths / sizeof *lengths ? lengths[length] : NULL;
    copy_text(text, sizeof text, bytes, size, bytes[at_name]);
    object_put_string(object, "SlotString", text);
    object_put_string(object, "SlotType", text);
    object_put_number(object, "SlotType", bytes[at_type]);
    object_put_string(object, "SlotLen", length_name);
    object_put_string(object, "SlotLength", length_name);
    object_put_number(object, "SlotLength", length);
}

void dmi_put_slot(struct object* object)
{
    sysfs_each(sysfs_root, "firmware/dmi/entries", visit, object);
}
