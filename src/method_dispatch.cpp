#include "method_dispatch.hpp"

namespace gantry
{

SlotFunction find_function(const Place& place, const GANTRY_instance* instance, std::size_t slot)
{
    if (instance == nullptr)
    {
        GANTRY_LOG_AT(place, log::fault, "inst is NULL");
        return nullptr;
    }
    if (instance->table == nullptr)
    {
        GANTRY_LOG_AT(place, log::fault, "inst->table is NULL");
        return nullptr;
    }
    return static_cast<const SlotFunction*>(instance->table)[slot];
}

std::exception give_up(const Place& place, const std::exception& failure)
{
    GANTRY_LOG_EXCEPTION_AT(place, failure.what());
    return {};
}

} // namespace gantry
