/*
 * What several objects of one network interface say alike. `device` is its directory,
 * class/net/eth0.
 */
#pragma once

#include "sysfs.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What a coded value means is between a host and its clients.
enum LinkStatus : unsigned char
{
    link_unknown = 0,
    link_up = 1,
    link_down = 2,
};

/** The directories of all network interfaces, sorted by name. */
std::vector<sysfs::Directory> network_devices(const sysfs::Directory& sys);

/** What names the interface's port to clients. */
std::string port_fqdd(const sysfs::Directory& device);

std::optional<LinkStatus> link_status(const sysfs::Directory& device);

struct ReceivedPackets
{
    std::uint64_t unicast;
    std::uint64_t multicast;
};

/** Nothing unless both counters are there and fit each other. */
std::optional<ReceivedPackets> received_packets(const sysfs::Directory& device);

/** Seconds since the epoch, in the 32 bits that the interfaces have. */
unsigned int now();
