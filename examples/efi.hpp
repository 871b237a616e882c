/*
 * What the firmware keeps of booting in EFI variables: the boot order, and a load option for each
 * Boot#### variable. A variable is the firmware's word, not ours: it may be short, torn or
 * hostile, and is then as absent as one that isn't there.
 */
#pragma once

#include "sysfs.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace efi
{

using Bytes = std::span<const unsigned char>;

struct LoadOption
{
    bool active;
    std::string description;

    /** The device path in text: a file as its name, any other node as Path(type,subtype,hex). */
    std::string path;

    /** What the firmware hands to what it starts. */
    std::vector<unsigned char> data;
};

/** From a variable's value. */
std::optional<LoadOption> parse_load_option(Bytes value);

/** The numbers of the load options in the order in which they are tried; nothing without one. */
std::optional<std::vector<std::uint16_t>> boot_order(const sysfs::Directory& sys);

/** The number of the load option that the machine started from. */
std::optional<std::uint16_t> boot_current(const sysfs::Directory& sys);

/** `Boot001A` of 0x001A. */
std::string option_name(std::uint16_t number);

std::optional<LoadOption> load_option(const sysfs::Directory& sys, std::uint16_t number);

/** The numbers of all Boot#### variables, sorted, well-formed or not. */
std::vector<std::uint16_t> load_options(const sysfs::Directory& sys);

/** Two capital digits a byte. */
std::string in_hexadecimal(Bytes bytes);

} // namespace efi
