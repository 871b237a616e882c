#include "readiness.hpp"

#include "publish.hpp"

#include <com/orvane/velmar/hwi/HWISupport/gantry_server.hpp>

using GANTRY_com_orvane_velmar_hwi_HWISupport::HWISupport;

namespace
{

void query_is_ready(GANTRY_instance* instance, bool* ready)
{
    void* readiness = nullptr;
    GANTRY_instance_get_user_private(instance, &readiness);
    *ready = static_cast<const Readiness*>(readiness)->declared();
}

constexpr GANTRY_table__com_orvane_velmar_hwi_HWISupport callbacks{.queryIsReady = query_is_ready};

} // namespace

Readiness::Readiness(GANTRY_cpp_context& context) :
    object(publish<HWISupport>(context, GANTRY_instantiate__com_orvane_velmar_hwi_HWISupport,
                               nullptr, &callbacks, this))
{
}

void Readiness::declare()
{
    if (object != nullptr)
    {
        object->isready(true);
    }
}

bool Readiness::declared() const
{
    return object != nullptr && object->isready();
}
