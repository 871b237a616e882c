#include "hwdb.h"

#include "record.h"
#include "sysfs.h"

#include <stdio.h>
#include <string.h>
#include <systemd/sd-hwdb.h>

enum
{
    name_size = 256
};

/* Lists of names that a distribution may have without the database. A line is a vendor or, behind
 * "C ", a class; a line behind a tab is a product of it, or a subclass. */
static const char* const lists[] = {"/usr/share/hwdata/pci.ids", "/usr/share/misc/pci.ids"};

static sd_hwdb* database;

struct names
{
    char vendor[name_size];
    char product[name_size];
    char subclass[name_size];
};

/* The names behind two codes, the second one in a line behind a tab. */
static void find_in_list(const char* outer, const char* inner, char outer_name[name_size],
                         char inner_name[name_size])
{
    char line[name_size];
    FILE* file = NULL;
    bool is_within = false;
    for (size_t i = 0; file == NULL && i < sizeof lists / sizeof *lists; ++i)
    {
        file = fopen(lists[i], "r");
    }
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

static void find_in_lists(struct names* names, const char* modalias)
{
    unsigned int vendor = 0;
    unsigned int product = 0;
    unsigned int class = 0;
    unsigned int subclass = 0;
    char outer[16];
    char inner[16];
    char ignored[name_size];
    if (sscanf(modalias, "pci:v%8Xd%8Xsv%*8Xsd%*8Xbc%2Xsc%2X", &vendor, &product, &class,
               &subclass) == 4)
    {
        snprintf(outer, sizeof outer, "%04x  ", vendor);
        snprintf(inner, sizeof inner, "%04x  ", product);
        find_in_list(outer, inner, names->vendor, names->product);
        snprintf(outer, sizeof outer, "C %02x  ", class);
        snprintf(inner, sizeof inner, "%02x  ", subclass);
        find_in_list(outer, inner, ignored, names->subclass);
        if (names->product[0] == '\0')
        {
            snprintf(names->product, name_size, "Device %04x", product);
        }
    }
}

static void find_in_database(char name[name_size], const char* modalias, const char* key)
{
    const char* found = NULL;
    if (sd_hwdb_get(database, modalias, key, &found) >= 0)
    {
        snprintf(name, name_size, "%s", found);
    }
}

/* The functions of a card are asked for in a row, so that the last names are kept. */
static const struct names* find(const char* modalias)
{
    static char last[sysfs_text_size];
    static struct names names;
    if (strcmp(last, modalias) == 0)
    {
        return &names;
    }
    snprintf(last, sizeof last, "%s", modalias);
    memset(&names, 0, sizeof names);
    if (database != NULL || sd_hwdb_new(&database) >= 0)
    {
        find_in_database(names.vendor, modalias, "ID_VENDOR_FROM_DATABASE");
        find_in_database(names.product, modalias, "ID_MODEL_FROM_DATABASE");
        find_in_database(names.subclass, modalias, "ID_PCI_SUBCLASS_FROM_DATABASE");
    }
    if (names.vendor[0] == '\0' || names.product[0] == '\0')
    {
        find_in_lists(&names, modalias);
    }
    return &names;
}

static void put(struct object* object, const char* member, const char* device, const char* file,
                const char* name)
{
    char path[sysfs_path_size];
    char text[sysfs_text_size];
    if (sysfs_is_recorded())
    {
        name = sysfs_text(device, file, text) ? text : name;
    }
    else if (name[0] != '\0' && sysfs_join(path, device, file))
    {
        record_file(path, name, strlen(name), 0444);
    }
    if (member != NULL && name[0] != '\0')
    {
        object_put_string(object, member, name);
    }
}

void hwdb_put(struct object* object, const char* device, const char* modalias,
              struct hwdb_members members)
{
    char text[sysfs_text_size];
    if (modalias == NULL)
    {
        modalias = sysfs_text(device, "modalias", text) ? text : "";
    }
    const struct names* names = find(modalias);
    put(object, members.vendor, device, "names/vendor", names->vendor);
    put(object, members.product, device, "names/product", names->product);
    put(object, members.subclass, device, "names/subclass", names->subclass);
}

void hwdb_close(void)
{
    database = sd_hwdb_unref(database);
}
