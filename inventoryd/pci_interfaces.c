#include "pci_interfaces.h"

#include "sysfs.h"

#include <string.h>

struct visitor
{
    void (*visit)(void* data, const char* path, const char* name);
    void* data;
};

static void each_of(const struct visitor* visitor, const char* device)
{
    char interfaces[sysfs_path_size];
    if (sysfs_join(interfaces, device, "net"))
    {
        sysfs_each(interfaces, visitor->visit, visitor->data);
    }
}

static void each_of_virtual(void* visitor, const char* device, const char* name)
{
    if (strncmp(name, "virtio", strlen("virtio")) == 0)
    {
        each_of(visitor, device);
    }
}

void pci_each_interface(const char* device,
                        void (*visit)(void* data, const char* path, const char* name), void* data)
{
    struct visitor visitor = {visit, data};
    each_of(&visitor, device);
    /* The device of a virtual machine's adapter is one level below its PCI device. */
    sysfs_each(device, each_of_virtual, &visitor);
}

static void ask(void* driver, const char* path, const char* name)
{
    (void)name;
    *(struct ethtool_drvinfo*)driver = ethtool_ask_driver(path);
}

struct ethtool_drvinfo pci_ask_driver(const char* device)
{
    struct ethtool_drvinfo driver = {0};
    pci_each_interface(device, ask, &driver);
    return driver;
}
