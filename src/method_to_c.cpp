#include "method_to_c.hpp"

#include <sdbusplus/exception.hpp>
#include <utility>

namespace gantry
{

// Not in the header: every object file would have its own copy of what std::string does here.
void read_text(const char* form, std::string& value)
{
    value.assign(form != nullptr ? form : "");
}

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

void rethrow(const Place& place, const std::exception& failure, bool is_for_client)
{
    auto given_up = give_up(place, failure);
    if (is_for_client && dynamic_cast<const sdbusplus::exception::SdBusError*>(&failure) != nullptr)
    {
        throw;
    }
    throw std::exception(std::move(given_up));
}

} // namespace gantry
