/*
 * Objects that a host in C++ makes itself, on the context's connection, and publishes. Each gets a
 * record among those of the library's objects. The record's class is identified by its vtable, and
 * the host owns the object.
 */
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "object.hpp"

#include <gantry/object.hpp>

#include <cerrno>
#include <sdbusplus/exception.hpp>
#include <utility>

namespace
{

constexpr char source_stem[] = "own_object";

} // namespace

GANTRY_instance* GANTRY_cpp_publish(GANTRY_cpp_context* context, void* object,
                                    const char* interface, const sd_bus_vtable* vtable)
{
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr)
    {
        throw sdbusplus::exception::SdBusError(ENOTCONN, "publish");
    }
    auto& state = *context->state;
    const auto path = static_cast<gantry::Object*>(object)->server_interface.path();
    gantry::throw_if_failed(state.objects.find(interface, path.c_str()) == nullptr ? 0 : -EEXIST,
                            "publish");
    const auto& own_class = *state.own_classes
                                 .try_emplace(vtable, gantry::Descriptor{.interface = interface,
                                                                         .path = nullptr,
                                                                         .vtable = vtable,
                                                                         .properties = nullptr,
                                                                         .create = nullptr,
                                                                         .delete_as_class = nullptr,
                                                                         .deleter = nullptr})
                                 .first;
    auto record = gantry::make_record(own_class.second, context, nullptr, path.c_str(), nullptr);
    record->the_service = object;
    state.objects.add(*record);
    return record.release();
}

void GANTRY_cpp_unpublish(GANTRY_instance* instance) noexcept
{
    if (instance != nullptr && instance->is_listed)
    {
        gantry::take_out(*instance);
    }
    gantry::release_record(instance);
}
