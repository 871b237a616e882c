#define _XOPEN_SOURCE 700 /* realpath */

#include "devices.h"

#include "card.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <systemd/sd-device.h>

static const char* const watched[] = {"pci", "usb", "net", "fc_host", "scsi_host", "infiniband"};

enum
{
    most_changed = 64
};

/* The directories of what has changed; of a PCI function, the one above it. */
static char* changed[most_changed];
static size_t changed_count;
static bool all_changed = true;

static void (*on_change)(void);

/* Where the subsystem has links to its devices, relative to sysfs. */
static bool find_links(const char* subsystem, char directory[sysfs_path_size])
{
    const bool is_bus = strcmp(subsystem, "pci") == 0 || strcmp(subsystem, "usb") == 0;
    char place[64];
    snprintf(place, sizeof place, is_bus ? "bus/%s/devices" : "class/%s", subsystem);
    return sysfs_join(directory, sysfs_root, place);
}

/* Records the link by which the device is found. */
static void record_device(const char* links, const char* device)
{
    const size_t length = strlen(sysfs_root);
    const bool is_bus = strncmp(links + length, "/bus/", strlen("/bus/")) == 0;
    char link[sysfs_path_size];
    char target[sysfs_path_size];
    if (sysfs_join(link, links, sysfs_name(device)) &&
        snprintf(target, sizeof target, "%s%s", is_bus ? "../../.." : "../..", device + length) <
            (int)sizeof target)
    {
        record_directory(device);
        record_link(link, target);
    }
}

struct visitor
{
    const char* links; /* where the subsystem has its links */
    sysfs_visit* visit;
    void* data;
};

static void visit_recorded(void* data, const char* path)
{
    const struct visitor* visitor = data;
    char* device = realpath(path, NULL);
    const size_t length = strlen(sysfs_root);
    /* A link to the outside would make another machine's files a part of the record. */
    if (device != NULL && strncmp(device, sysfs_root, length) == 0 && device[length] == '/')
    {
        record_device(visitor->links, device);
        visitor->visit(visitor->data, device);
    }
    free(device);
}

void devices_each(const char* subsystem, sysfs_visit* visit, void* data)
{
    char links[sysfs_path_size];
    struct visitor visitor = {links, visit, data};
    sd_device_enumerator* enumerator = NULL;
    if (!find_links(subsystem, links))
    {
        return;
    }
    if (sysfs_is_recorded())
    {
        sysfs_each(links, "", visit_recorded, &visitor);
        return;
    }
    if (sd_device_enumerator_new(&enumerator) < 0)
    {
        return;
    }
    sd_device_enumerator_allow_uninitialized(enumerator);
    sd_device_enumerator_add_match_subsystem(enumerator, subsystem, 1);
    for (sd_device* each = sd_device_enumerator_get_device_first(enumerator); each != NULL;
         each = sd_device_enumerator_get_device_next(enumerator))
    {
        const char* device = NULL;
        if (sd_device_get_syspath(each, &device) >= 0)
        {
            record_device(links, device);
            visit(data, device);
        }
    }
    sd_device_enumerator_unref(enumerator);
}

void devices_forget(void)
{
    while (changed_count > 0)
    {
        free(changed[--changed_count]);
    }
    all_changed = false;
}

static bool is_below(const char* device, const char* directory)
{
    const size_t length = strlen(directory);
    return strncmp(device, directory, length) == 0 &&
           (device[length] == '/' || device[length] == '\0');
}

bool devices_is_due(const char* device)
{
    for (size_t i = 0; i < changed_count; ++i)
    {
        if (is_below(device, changed[i]) || is_below(changed[i], device))
        {
            return true;
        }
    }
    return all_changed;
}

static void add(const char* device)
{
    struct pci_location location;
    char* parent = device != NULL && changed_count < most_changed ? strdup(device) : NULL;
    if (parent == NULL)
    {
        all_changed = true;
        return;
    }
    if (pci_location_parse(sysfs_name(device), &location))
    {
        *strrchr(parent, '/') = '\0';
    }
    changed[changed_count++] = parent;
}

void devices_on_change(void (*change)(void))
{
    on_change = change;
}

void devices_note(const char* device)
{
    if (device == NULL || !devices_is_due(device))
    {
        add(device);
    }
    if (on_change != NULL)
    {
        on_change();
    }
}

/* The event loop calls this. */
static int on_device(sd_device_monitor* monitor, sd_device* device, void* data)
{
    const char* directory = NULL;
    (void)monitor, (void)data;
    if (sd_device_get_syspath(device, &directory) >= 0)
    {
        devices_note(directory);
    }
    return 0;
}

int devices_watch(sd_event* event)
{
    sd_device_monitor* monitor = NULL;
    int result = sd_device_monitor_new(&monitor);
    for (size_t i = 0; result >= 0 && i < sizeof watched / sizeof *watched; ++i)
    {
        result = sd_device_monitor_filter_add_match_subsystem_devtype(monitor, watched[i], NULL);
    }
    if (result >= 0)
    {
        result = sd_device_monitor_attach_event(monitor, event);
    }
    /* The monitor stays as long as the process: nothing holds it but its source. */
    return result >= 0 ? sd_device_monitor_start(monitor, on_device, NULL) : result;
}
