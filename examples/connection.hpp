/*
 * What the kernel itself sees at the other end of a network interface: a NicConnectionView each,
 * with the bridge that the spanning tree protocol found there. Read again at each refresh.
 */
#pragma once

#include "sysfs.hpp"

#include <gantry/context.hpp>

#include <vector>

namespace GANTRY_com_orvane_velmar_system_NicConnectionView
{
class NicConnectionView;
}

class NetworkConnections
{
  public:
    /** Publishes what the directory `sys` shows. The objects belong to the context. */
    NetworkConnections(GANTRY_cpp_context& context, const sysfs::Directory& sys);

    /** Reads the changing values again; what differs is announced. */
    void refresh();

  private:
    struct Connection
    {
        sysfs::Directory device;
        GANTRY_com_orvane_velmar_system_NicConnectionView::NicConnectionView* object;
    };

    std::vector<Connection> connections;
};
