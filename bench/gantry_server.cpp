/*
 * The same objects as raw_server's, on the library.
 *
 *     gantry_server COUNT [SERVICE]    prints "ready" when COUNT NicPort objects are served; under
 *                                      GANTRY_dbus_loop, or with a name to serve under
 *                                      GANTRY_dbus_sdloop
 */
#include <com/orvane/velmar/system/NicPort/gantry_server.hpp>
#include <com/orvane/velmar/system/QSFPD/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/loop.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    using GANTRY_com_orvane_velmar_system_NicPort::NicPort;
    using GANTRY_com_orvane_velmar_system_QSFPD::QSFPD;

    const long count = argc > 1 ? std::atol(argv[1]) : 1;
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    if (context == nullptr)
    {
        return 1;
    }
    const char* service = argc > 2 ? argv[2] : nullptr;
    GANTRY_context_set_service(context,
                               service != nullptr ? service : "com.orvane.velmar.bench.gantry");
    for (long number = 0; number < count; ++number)
    {
        char path[64];
        std::snprintf(path, sizeof path, "/com/orvane/velmar/system/NicPort/p%ld", number);
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(context, nullptr, path, nullptr);
        auto* port = static_cast<NicPort*>(context->tracker.back().object);
        port->fqdd("NIC.Integrated.1-1-1", true);
        port->familyDriverVersion("22.31.6", true);
        port->friendlyFQDD("Integrated NIC 1 Port 1 Partition 1", true);
    }
    GANTRY_instantiate__com_orvane_velmar_system_QSFPD(context, nullptr, nullptr, nullptr);
    auto* module = static_cast<QSFPD*>(context->tracker.back().object);
    module->fqdd("NIC.Integrated.1-1-1", true);
    module->vendorName("Vendor", true);
    module->vendorSN("0123456789", true);
    std::puts("ready");
    std::fflush(stdout);
    service != nullptr ? GANTRY_dbus_sdloop(context) : GANTRY_dbus_loop(context);
    return 1;
}
