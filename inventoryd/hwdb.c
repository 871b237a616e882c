#include "card.h"

#include <stdio.h>
#include <string.h>
#include <systemd/sd-hwdb.h>

enum
{
    vendor,
    product,
    subclass,
    name_count,
    name_size = 256
};

/* Of each name the key in the database, the file in a record, and the properties. */
static const struct
{
    const char* key;
    const char* file;
    const char* members[3];
} places[name_count] = {
    {"ID_VENDOR_FROM_DATABASE", "names/vendor", {"VendorName", "Manufacturer", "manufacturer"}},
    {"ID_MODEL_FROM_DATABASE", "names/product", {"ProductName", "productName", ""}},
    {"ID_PCI_SUBCLASS_FROM_DATABASE", "names/subclass", {"Description", "description", ""}},
};

/* Lists of names that a distribution may have without the database. A line is a vendor or, behind
 * "C ", a class; a line behind a tab is a product of it, or a subclass. */
static const char* const lists[] = {"/usr/share/hwdata/pci.ids", "/usr/share/misc/pci.ids"};

static sd_hwdb* database;

/* The names behind two codes, the second one in a line behind a tab. */
static void find_in_list(const char* outer, const char* inner, char outer_name[name_size],
                         char inner_name[name_size])
{
    char line[name_size];
    FILE* file = fopen(lists[0], "r");
    bool is_within = false;
    file = file != NULL ? file : fopen(lists[1], "r");
    while (file != NULL && inner_name[0] == '\0' && fgets(line, sizeof line, file) != NULL)
    {
        line[strcspn(line, "\n")] = '\0';
        if (line[0] == '\t' && is_within && strncmp(line + 1, inner, strlen(inner)) == 0)
        {
            snprintf(inner_name, name_size, "%s", line + 1 + strlen(inner));
        }
        else if (line[0] != '\t' && line[0] != '#')
        {
            if (is_within)
            {
                break;
            }
            is_within = strncmp(line, outer, strlen(outer)) == 0;
            snprintf(outer_name, name_size, "%s", is_within ? line + strlen(outer) : "");
        }
    }
    if (file != NULL)
    {
        fclose(file);
    }
}

static void find_in_lists(char names[name_count][name_size], const char* modalias)
{
    unsigned int codes[4];
    char outer[16];
    char inner[16];
    char ignored[name_size];
    if (sscanf(modalias, "pci:v%8Xd%8Xsv%*8Xsd%*8Xbc%2Xsc%2X", &codes[0], &codes[1], &codes[2],
               &codes[3]) != 4)
    {
        return;
    }
    snprintf(outer, sizeof outer, "%04x  ", codes[0]);
    snprintf(inner, sizeof inner, "%04x  ", codes[1]);
    find_in_list(outer, inner, names[vendor], names[product]);
    snprintf(outer, sizeof outer, "C %02x  ", codes[2]);
    snprintf(inner, sizeof inner, "%02x  ", codes[3]);
    find_in_list(outer, inner, ignored, names[subclass]);
    if (names[product][0] == '\0')
    {
        snprintf(names[product], name_size, "Device %04x", codes[1]);
    }
}

void hwdb_put(struct object* object, const char* device, const char* modalias)
{
    /* The functions of a card are asked for in a row, so that the last names are kept. */
    static char last[sysfs_text_size];
    static char names[name_count][name_size];
    char text[sysfs_text_size] = "";
    if (modalias == NULL)
    {
        (void)sysfs_text(device, "modalias", text);
        modalias = text;
    }
    if (strcmp(last, modalias) != 0)
    {
        memset(names, 0, sizeof names);
        for (size_t i = 0; i < name_count; ++i)
        {
            const char* found = "";
            (void)((database != NULL || sd_hwdb_new(&database) >= 0) &&
                   sd_hwdb_get(database, modalias, places[i].key, &found) >= 0);
            snprintf(names[i], name_size, "%s", found);
        }
        if (names[vendor][0] == '\0' || names[product][0] == '\0')
        {
            find_in_lists(names, modalias);
        }
        snprintf(last, sizeof last, "%s", modalias);
    }
    for (size_t i = 0; i < name_count; ++i)
    {
        const bool is_recorded = sysfs_is_recorded() && sysfs_text(device, places[i].file, text);
        const char* name = is_recorded ? text : names[i];
        if (!is_recorded && *name != '\0')
        {
            record_answer(device, places[i].file, name, strlen(name));
        }
        for (size_t member = 0; *name != '\0' && member < 3; ++member)
        {
            object_put_string(object, places[i].members[member], name);
        }
    }
}

void hwdb_close(void)
{
    database = sd_hwdb_unref(database);
}
