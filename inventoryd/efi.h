/*
 * The firmware's boot configuration in EFI variables: the boot order, and a load option in each
 * Boot#### variable. Variables are not trusted: a malformed one is treated as a missing one.
 */
#ifndef EFI_H
#define EFI_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum
{
    efi_name_size = sizeof "Boot0000",
    efi_most_options = 1024
};

struct efi_load_option
{
    bool active;
    /* efi_free_load_option frees the texts. */
    char* description;
    char* path; /* a file as its name, any other node as Path(type,subtype,hex) */
    char* data; /* what the firmware passes to the program, two upper-case hex digits per byte */
};

/* The numbers of the load options, in the order in which the firmware tries them. */
struct efi_boot_order
{
    size_t count;
    uint16_t numbers[efi_most_options];
};

bool efi_read_boot_order(const char* sys, struct efi_boot_order* order);

/* The number of the load option that the machine started from. */
bool efi_read_boot_current(const char* sys, uint16_t* number);

/* The number of the load option that the firmware tries first at the next start only. */
bool efi_read_boot_next(const char* sys, uint16_t* number);

/* `Boot001A` for 0x001A. */
void efi_option_name(uint16_t number, char name[efi_name_size]);

bool efi_read_load_option(const char* sys, uint16_t number, struct efi_load_option* option);
void efi_free_load_option(struct efi_load_option* option);

/* Calls `visit` for each Boot#### variable, well-formed or not, in the order of their numbers. */
void efi_each_load_option(const char* sys, void (*visit)(void* data, uint16_t number), void* data);

#endif
