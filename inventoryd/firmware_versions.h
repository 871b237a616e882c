/*
 * The versions of a card's firmware: what devlink tells of the PCI function, or, where its driver
 * doesn't take part in devlink, what the driver of its network interface does.
 */
#ifndef FIRMWARE_VERSIONS_H
#define FIRMWARE_VERSIONS_H

enum
{
    firmware_version_size = 64
};

/* An empty text is unknown. */
struct firmware_versions
{
    char firmware[firmware_version_size];
    char option_rom[firmware_version_size]; /* what starts a machine from the network */
    char part_number[firmware_version_size];
    char serial_number[firmware_version_size];
    char driver[firmware_version_size];
};

void firmware_versions_read(struct firmware_versions* versions, const char* function);

#endif
