#include "object.hpp"

#include "connection.hpp"
#include "deferred_call.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "object_manager.hpp"

#include <gantry/object.hpp>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace
{

constexpr char source_stem[] = "object";

/** A record for an object that is about to be made. */
std::unique_ptr<GANTRY_instance, void (*)(GANTRY_instance*)>
make_record(const gantry::Descriptor& descriptor, GANTRY_cpp_context* context, const void* table,
            const char* path, void* user_private)
{
    std::unique_ptr<GANTRY_instance, void (*)(GANTRY_instance*)> instance{
        new GANTRY_instance{.vctx = context,
                            .table = table,
                            .path = strdup(path),
                            .user_private = user_private,
                            .descriptor = &descriptor},
        [](GANTRY_instance* record) { gantry::release_record(record); }};
    if (instance->path == nullptr)
    {
        throw std::bad_alloc();
    }
    return instance;
}

/** The record of a tracked object; null if no class of the context is its. */
GANTRY_instance* record_of(const GANTRY_cpp_context& context,
                           const GANTRY_cpp_context::Tracked& tracked)
{
    const auto& classes = context.classes;
    const auto found =
        std::find_if(classes.begin(), classes.end(),
                     [&tracked](const auto* each) { return each->deleter == tracked.deleter; });
    return found != classes.end() ? (*found)->instance_of(tracked.object) : nullptr;
}

/** The paths of the context's objects, for its root managers. */
std::vector<const char*> list_paths(const GANTRY_cpp_context& context)
{
    std::vector<const char*> paths;
    for (const auto& tracked : context.tracker)
    {
        if (const auto* instance = record_of(context, tracked); instance != nullptr)
        {
            paths.push_back(instance->path);
        }
    }
    return paths;
}

/** The record of the context's oldest object of a class at `path`, or at any path if that is null.
 *  Returns null if there is none. */
GANTRY_instance* find_object(const GANTRY_cpp_context& context,
                             const gantry::Descriptor& descriptor, const char* path)
{
    for (const auto& tracked : context.tracker)
    {
        if (tracked.deleter == descriptor.deleter)
        {
            auto* instance = descriptor.instance_of(tracked.object);
            if (path == nullptr || std::strcmp(instance->path, path) == 0)
            {
                return instance;
            }
        }
    }
    return nullptr;
}

/** What managers tell of an object. */
gantry::Published published(const GANTRY_instance& instance)
{
    return {instance.path, instance.descriptor->interface, instance.descriptor->vtable,
            instance.the_service};
}

/** Takes an object with its manager off the bus. Inside a callback for a client's write sd-bus
 * would answer that with an error. */
void destroy(GANTRY_instance& instance)
{
    gantry::remove_object_manager(*instance.vctx, instance.manager);
    instance.descriptor->deleter(instance.the_service);
}

void delete_freed(gantry::FreedObject& freed)
{
    destroy(*reinterpret_cast<GANTRY_instance*>(reinterpret_cast<char*>(&freed) -
                                                offsetof(GANTRY_instance, freed)));
}

} // namespace

void gantry::delete_object(void* object, const Descriptor& descriptor)
{
    if (object != nullptr)
    {
        descriptor.delete_as_class(object);
    }
}

void gantry::release_record(GANTRY_instance* instance) noexcept
{
    if (instance != nullptr)
    {
        close_calls(*instance->vctx, instance);
        std::free(instance->path);
        delete instance;
    }
}

void gantry::instantiate(const Place& place, const Descriptor& descriptor,
                         GANTRY_cpp_context* context, const void* table, const char* path,
                         void* user_private)
{
    GANTRY_LOG_AT(place, log::trace, "enter");
    context = resolve(place, context);
    if (context == nullptr)
    {
        return;
    }
    context->last_created = nullptr;
    const char* instance_path = path != nullptr ? path : descriptor.path;
    const auto create = [&]
    {
        GANTRY_LOG_AT(place, log::trace, "instance_path=[%s]", instance_path);
        auto instance = make_record(descriptor, context, table, instance_path, user_private);
        GANTRY_LOG_AT(place, log::trace, "inst->path=[%s]", instance->path);

        if (context->service_name == nullptr)
        {
            GANTRY_LOG_AT(place, log::trace, "setting the service_name");
            context->service_name = descriptor.interface;
            GANTRY_LOG_AT(place, log::trace, "service_name=[%s]", context->service_name);
            // An earlier context of the thread's may have got it on the same connection.
            const int result = request_name(*context, context->service_name);
            throw_if_failed(result == -EALREADY ? 0 : result, "sd_bus_request_name");
        }
        instance->manager = add_object_manager(*context, instance->path);
        struct RemoveManager
        {
            GANTRY_cpp_context& context;
            sd_bus_slot* slot;
            ~RemoveManager()
            {
                remove_object_manager(context, slot);
            }
        } manager{*context, instance->manager};

        auto& classes = context->classes;
        if (std::find(classes.begin(), classes.end(), &descriptor) == classes.end())
        {
            classes.push_back(&descriptor);
        }
        std::unique_ptr<void, void (*)(void*)> object{
            descriptor.create(context->bus, instance.get()), descriptor.deleter};
        auto* record = instance.release();
        context->tracker.push_back({object.get(), descriptor.deleter});
        static_cast<void>(object.release());
        manager.slot = nullptr;
        context->last_created = record;
        GANTRY_LOG_AT(place, log::trace, "leave");
        return 0;
    };
    const Subject subject{descriptor.interface, instance_path};
    host_boundary(place, &context->create_error, create, &subject);
}

GANTRY_instance* gantry::find_listener(const void* object)
{
    const auto* context = own_context();
    if (context == nullptr || !context->hears_writes)
    {
        return nullptr;
    }
    const auto& tracker = context->tracker;
    const auto tracked = std::find_if(tracker.begin(), tracker.end(),
                                      [object](const auto& each) { return each.object == object; });
    auto* instance = tracked != tracker.end() ? record_of(*context, *tracked) : nullptr;
    return instance != nullptr && instance->written != nullptr ? instance : nullptr;
}

void GANTRY_instance_on_write(GANTRY_instance* instance,
                              void (*written)(GANTRY_instance* instance, const char* property,
                                              void* data),
                              void* data)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr)
    {
        instance->written = written;
        instance->written_data = data;
        instance->vctx->hears_writes = true;
    }
}

void GANTRY_context_manage(GANTRY_cpp_context* context, const char* path, int* error)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    const auto here = GANTRY_HERE;
    const auto manage = [&]
    {
        if (path == nullptr || sd_bus_object_path_is_valid(path) <= 0)
        {
            return EINVAL;
        }
        context = gantry::resolve(here, context);
        if (context == nullptr)
        {
            return gantry::already_logged(ENOTCONN);
        }
        gantry::add_root_manager(*context, path, list_paths);
        return 0;
    };
    gantry::host_boundary(here, error, manage);
}

void GANTRY_instance_get_created(GANTRY_cpp_context* context, GANTRY_instance** out, int* error)
{
    const auto here = GANTRY_HERE;
    const auto get = [&]
    {
        context = gantry::resolve(here, context);
        *out = context != nullptr ? context->last_created : nullptr;
        if (context == nullptr)
        {
            return gantry::already_logged(ENOTCONN);
        }
        return *out == nullptr && context->create_error == 0 ? ENOENT : context->create_error;
    };
    gantry::host_boundary(here, error, get);
}

void GANTRY_instance_get_interface(GANTRY_instance* instance, const char** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance != nullptr && out != nullptr)
    {
        *out = instance->descriptor->interface;
    }
}

void* GANTRY_cpp_instance_get_object(GANTRY_instance* instance, const char* interface)
{
    return instance != nullptr && std::strcmp(instance->descriptor->interface, interface) == 0
               ? instance->the_service
               : nullptr;
}

void GANTRY_instance_find(GANTRY_cpp_context* context, const char* interface, const char* path,
                          GANTRY_instance** out)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (out == nullptr)
    {
        return;
    }
    *out = nullptr;
    context = gantry::resolve(GANTRY_HERE, context);
    if (context == nullptr || interface == nullptr)
    {
        return;
    }
    for (const auto* descriptor : context->classes)
    {
        if (std::strcmp(descriptor->interface, interface) == 0)
        {
            *out = find_object(*context, *descriptor, path);
            return;
        }
    }
}

void GANTRY_instance_announce_added(GANTRY_instance* instance, int* error)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    const auto announce = [instance]
    {
        if (instance == nullptr)
        {
            return EINVAL;
        }
        gantry::announce_added(*instance->vctx, published(*instance));
        return 0;
    };
    gantry::host_boundary(GANTRY_HERE, error, announce);
}

void GANTRY_instance_free(GANTRY_instance** instance)
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance == nullptr || *instance == nullptr)
    {
        return;
    }
    const gantry::NoCancellation no_cancellation;
    auto& freed = *std::exchange(*instance, nullptr);
    auto& context = *freed.vctx;
    auto& tracker = context.tracker;
    const auto found =
        std::find_if(tracker.begin(), tracker.end(),
                     [&freed](const auto& tracked) { return tracked.object == freed.the_service; });
    if (found == tracker.end())
    {
        return; // It was freed before, in the callback that is running.
    }
    tracker.erase(found);
    if (context.last_created == &freed)
    {
        context.last_created = nullptr;
    }

    gantry::announce_removed(context, published(freed));
    if (gantry::is_in_callback(context))
    {
        freed.freed.destroy = delete_freed;
        gantry::destroy_later(context, freed.freed);
    }
    else
    {
        destroy(freed);
    }
}
