/*
 * The machine's network interfaces: a NicPort each, whose link state and counters are read again
 * at each refresh, and one NicController that counts them.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

#include <string>
#include <vector>

namespace GANTRY_com_orvane_velmar_system_NicPort
{
class NicPort;
}

class NetworkPorts
{
  public:
    /** Publishes what the directory `sys` shows. The objects belong to the context. */
    NetworkPorts(GANTRY_cpp_context& context, const sysfs::Directory& sys);

    /** Reads the changing values again; what differs is announced. */
    void refresh();

  private:
    struct Port
    {
        sysfs::Directory device;
        GANTRY_com_orvane_velmar_system_NicPort::NicPort* object;
    };

    void read(const Port& port, bool skip_signal);

    std::vector<Port> ports;
};
