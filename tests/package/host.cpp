// A host in C++ outside the library's tree: an object by its C function, held by its class, and one
// of a class derived from a generated one.
#include <com/orvane/velmar/hwi/HWISupport/server.hpp>
#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/gantry.h>
#include <gantry/object.hpp>
#include <gantry/types.hpp>

class Support : public sdbusplus::server::com::orvane::velmar::hwi::HWISupport
{
  public:
    using HWISupport::HWISupport;

    bool queryIsReady() override
    {
        return true;
    }
};

int main()
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    GANTRY_context_set_service(context, "com.orvane.velmar.HWInventory");
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, nullptr, nullptr, nullptr);
    GANTRY_instance* instance = nullptr;
    GANTRY_instance_get_created(context, &instance, nullptr);
    gantry::object<GANTRY_com_orvane_velmar_system_BLT::BLT>(instance)->firmwareVersion("2.19.1");
    const Support support{context->bus, "/support"};
    GANTRY_dbus_loop(context);
    return 1;
}
