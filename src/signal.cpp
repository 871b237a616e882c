#include "signal.hpp"

#include <string>

namespace gantry
{

const GANTRY_instance* find_sender(const Place& place, const Descriptor& descriptor,
                                   const GANTRY_instance* instance)
{
    if (instance == nullptr)
    {
        GANTRY_LOG_AT(place, log::trace, "cpp_inst is nullptr, getting default");
        const auto* context = resolve(place, nullptr);
        if (context == nullptr)
        {
            return nullptr;
        }
        for (const auto& tracked : context->tracker)
        {
            GANTRY_LOG_AT(place, log::trace, "checking tracker");
            if (tracked.deleter == descriptor.deleter)
            {
                GANTRY_LOG_AT(place, log::trace, "found instance");
                instance = descriptor.instance_of(tracked.object);
                break;
            }
        }
        if (instance == nullptr)
        {
            GANTRY_LOG_AT(place, log::failed, "cpp_inst is still nullptr");
            return nullptr;
        }
    }
    if (instance->the_service == nullptr)
    {
        GANTRY_LOG_AT(place, log::failed, "the_service is nullptr");
        return nullptr;
    }
    if (instance->descriptor != &descriptor)
    {
        GANTRY_LOG_AT(place, log::failed, "the instance is of [%s]",
                      instance->descriptor->interface);
        return nullptr;
    }
    return instance;
}

void subscribe(GANTRY_cpp_context& context, const char* member,
               std::function<void(sdbusplus::message::message&)> arrival)
{
    const auto rule = std::string("type='signal',member='") + member + "',";
    auto match = std::make_unique<sdbusplus::bus::match::match>(context.bus, rule.c_str(),
                                                                std::move(arrival));
    context.signal_matches.push_back(std::move(match));
}

} // namespace gantry
