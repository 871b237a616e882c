/*
 * The machine's network interfaces as its PCI functions show them: a NicPartition each, with
 * addresses, PCI location and driver, whose link state and counters are read again at each refresh.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

#include <vector>

namespace GANTRY_com_orvane_velmar_system_NicPartition
{
class NicPartition;
}

class NetworkPartitions
{
  public:
    /** Publishes what the directory `sys` shows. The objects belong to the context. */
    NetworkPartitions(GANTRY_cpp_context& context, const sysfs::Directory& sys);

    /** Reads the changing values again; what differs is announced. */
    void refresh();

  private:
    struct Partition
    {
        sysfs::Directory device;
        GANTRY_com_orvane_velmar_system_NicPartition::NicPartition* object;
    };

    std::vector<Partition> partitions;
};
