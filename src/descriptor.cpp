#include "descriptor.hpp"

#include "gantrycontext.hpp"
#include "resolve.hpp"

#include <algorithm>
#include <exception>
#include <memory>

namespace gantry
{

void destroy(void* object, const Descriptor& descriptor)
{
    if (object != nullptr)
    {
        descriptor.remove(object);
    }
}

void instantiate(const Place& place, const Descriptor& descriptor, GANTRY_cpp_context* context,
                 const void* table, const char* path, void* user_private)
try
{
    GANTRY_LOG_AT(place, log::trace, "enter");
    context = resolve(place, context);
    if (context == nullptr)
    {
        return;
    }

    const char* instance_path = path != nullptr ? path : descriptor.path;
    GANTRY_LOG_AT(place, log::trace, "instance_path=[%s]", instance_path);
    auto instance = make_instance(context, table, instance_path, user_private);
    instance->descriptor = &descriptor;
    GANTRY_LOG_AT(place, log::trace, "inst->path=[%s]", instance->path);

    if (context->service_name == nullptr)
    {
        GANTRY_LOG_AT(place, log::trace, "setting the service_name");
        context->service_name = descriptor.interface;
        GANTRY_LOG_AT(place, log::trace, "service_name=[%s]", context->service_name);
        request_name(*context, context->service_name);
    }
    instance->manager = add_object_manager(*context, instance->path);

    auto& classes = context->classes;
    if (std::find(classes.begin(), classes.end(), &descriptor) == classes.end())
    {
        classes.push_back(&descriptor);
    }
    std::unique_ptr<void, void (*)(void*)> object{descriptor.create(context->bus, instance.get()),
                                                  descriptor.destroy};
    static_cast<void>(instance.release());
    context->tracker.push_back({object.get(), descriptor.destroy});
    static_cast<void>(object.release());
    GANTRY_LOG_AT(place, log::trace, "leave");
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION_AT(place, error.what());
}

} // namespace gantry
