#include "dmi_slot.h"

#include "sysfs.h"

#include <stdio.h>
#include <string.h>

struct search
{
    struct dmi_slot* slot;
    const struct pci_location* location;
    bool is_found;
};

/* Where DMI has the fields in a record of type 9. */
enum
{
    at_length = 1,
    at_name = 4,
    at_type = 5,
    at_width = 6,
    at_slot_length = 8,
    at_number = 9,
    at_segment = 13,
    at_bus = 15,
    at_function = 16,
    least_length = 17
};

/* The text of that number, counted from 1, behind the fields. */
static void copy_text(char text[dmi_slot_name_size], const unsigned char* bytes, size_t size,
                      unsigned int number)
{
    size_t at = bytes[at_length];
    while (number > 1 && at < size)
    {
        number -= bytes[at++] == '\0' ? 1 : 0;
    }
    if (number == 1 && at < size)
    {
        snprintf(text, dmi_slot_name_size, "%.*s", (int)(size - at), (const char*)bytes + at);
    }
}

static void visit(void* data, const char* path, const char* name)
{
    struct search* search = data;
    unsigned char bytes[1024];
    size_t size = 0;
    if (strncmp(name, "9-", 2) != 0 || search->is_found ||
        (size = sysfs_bytes(path, "raw", bytes, sizeof bytes)) < least_length ||
        bytes[at_length] < least_length)
    {
        return;
    }
    const struct pci_location* location = search->location;
    if ((bytes[at_segment] | (unsigned int)bytes[at_segment + 1] << 8) == location->segment &&
        bytes[at_bus] == location->bus && bytes[at_function] >> 3U == location->device)
    {
        struct dmi_slot* slot = search->slot;
        search->is_found = true;
        slot->type = bytes[at_type];
        slot->width = bytes[at_width];
        slot->length = bytes[at_slot_length];
        slot->number = (uint16_t)(bytes[at_number] | bytes[at_number + 1] << 8);
        copy_text(slot->name, bytes, size, bytes[at_name]);
    }
}

bool dmi_slot_find(struct dmi_slot* slot, const struct pci_location* location)
{
    struct search search = {slot, location, false};
    char entries[sysfs_path_size];
    memset(slot, 0, sizeof *slot);
    if (sysfs_join(entries, sysfs_root, "firmware/dmi/entries"))
    {
        sysfs_each(entries, visit, &search);
    }
    return search.is_found;
}

const char* dmi_slot_length_name(const struct dmi_slot* slot)
{
    static const char* const names[] = {NULL,   NULL,          NULL,         "Short",
                                        "Long", "2.5\" drive", "3.5\" drive"};
    return slot->length < sizeof names / sizeof *names ? names[slot->length] : NULL;
}
