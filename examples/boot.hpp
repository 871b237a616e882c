/*
 * What the machine starts from, where its firmware is EFI: a BootDevice for each load option, and
 * one BootSequence with the order in which they are tried.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

void publish_boot(GANTRY_cpp_context& context, const sysfs::Directory& sys);
