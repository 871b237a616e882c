#include "object.hpp"

#include "connection.hpp"
#include "context_state.hpp"
#include "deferred_call.hpp"
#include "deferred_destruction.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "object_manager.hpp"
#include "thread_context.hpp"

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

/**
 * Makes a manager the one that the context owns. The slot of the one before becomes floating: it
 * stays registered until the connection is closed, and doesn't keep the connection open.
 */
void hold_object_manager(GANTRY_cpp_context& context,
                         std::unique_ptr<gantry::ObjectManager> added) noexcept
{
    const std::unique_ptr<gantry::ObjectManager> earlier(
        std::exchange(context.object_manager, added.release()));
    if (earlier != nullptr && earlier->slot != nullptr)
    {
        sd_bus_slot_set_floating(earlier->slot, 1);
    }
}

/** Removes the tracker's entries whose object was freed. */
void compact_tracker(GANTRY_cpp_context& context) noexcept
{
    auto& tracker = context.tracker;
    std::erase_if(tracker, [](const auto& entry) { return entry.object == nullptr; });
    context.state->freed_entries = 0;
    std::size_t at = 0;
    for (auto* each = context.state->objects.oldest(); each != nullptr; each = each->newer)
    {
        if (each->is_own())
        {
            continue; // it has no entry
        }
        while (at < tracker.size() && tracker[at].object != each->the_service)
        {
            ++at; // an entry that the host added itself
        }
        each->tracked = static_cast<std::uint32_t>(at);
    }
}

/**
 * Removes an object's entry from the tracker. If all newer entries were moved each time, freeing
 * one object among many would be slow. So the entry stays, without its object, until one entry in
 * sixteen is such an entry.
 */
void untrack(GANTRY_instance& instance) noexcept
{
    constexpr std::size_t share = 16;
    auto& tracker = instance.vctx->tracker;
    auto& freed = instance.vctx->state->freed_entries;
    // Entries only move down, unless the host has inserted some of its own.
    auto at = std::min<std::size_t>(instance.tracked, tracker.size() - 1);
    while (at > 0 && tracker[at].object != instance.the_service)
    {
        --at;
    }
    const auto entry =
        std::find_if(tracker.begin() + static_cast<std::ptrdiff_t>(at), tracker.end(),
                     [&](const auto& each) { return each.object == instance.the_service; });
    if (entry != tracker.end())
    {
        entry->object = nullptr;
        ++freed;
    }
    if (freed * share >= tracker.size())
    {
        compact_tracker(*instance.vctx);
    }
}

} // namespace

gantry::Record gantry::make_record(const Descriptor& descriptor, GANTRY_cpp_context* context,
                                   const void* table, const char* path, void* user_private)
{
    Record instance{new GANTRY_instance{.vctx = context,
                                        .table = table,
                                        .path = strdup(path),
                                        .user_private = user_private,
                                        .descriptor = &descriptor},
                    release_record};
    if (instance->path == nullptr)
    {
        throw std::bad_alloc();
    }
    return instance;
}

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
        if (auto* context = instance->vctx; context != nullptr)
        {
            if (instance->is_listed)
            {
                context->state->objects.remove(*instance);
            }
            context->state->write_listeners.erase(instance->the_service);
            close_calls(*context, instance);
        }
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
    context->state->last_created = nullptr;
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
            // An earlier context of the thread may have got the name on the same connection.
            const int result = request_name(*context, context->service_name);
            throw_if_failed(result == -EALREADY ? 0 : result, "sd_bus_request_name");
        }
        auto manager = std::make_unique<ObjectManager>(nullptr);
        const int refused = sd_bus_add_object_manager(GANTRY_get_sd_bus(context->bus),
                                                      &manager->slot, instance->path);
        instance->manager = manager->slot;
        const std::unique_ptr<bool, void (*)(bool*)> creating{&(context->state->is_creating = true),
                                                              [](bool* flag) { *flag = false; }};
        std::unique_ptr<void, void (*)(void*)> object{
            descriptor.create(context->bus, instance.get()), descriptor.deleter};
        auto* record = instance.release(); // now the object's
        record->mark = context->state->changes.mark();
        record->tracked = static_cast<std::uint32_t>(context->tracker.size());
        context->state->objects.add(*record);
        context->tracker.push_back({object.get(), descriptor.deleter});
        static_cast<void>(object.release());
        hold_object_manager(*context, std::move(manager));
        if (refused < 0)
        {
            GANTRY_LOG_AT(place, log::failed, "sd_bus_add_object_manager failed for [%s], rv=%d",
                          record->path, refused);
        }
        context->state->last_created = record;
        GANTRY_LOG_AT(place, log::trace, "leave");
        return 0;
    };
    const Subject subject{descriptor.interface, instance_path};
    host_boundary(place, &context->state->create_error, create, &subject);
}

void gantry::take_out(GANTRY_instance& instance) noexcept
{
    auto& state = *instance.vctx->state;
    state.objects.remove(instance);
    if (state.last_created == &instance)
    {
        state.last_created = nullptr;
    }
    announce_removed(instance);
}

GANTRY_instance* gantry::find_listener(const void* object)
{
    const auto* context = own_context();
    if (context == nullptr)
    {
        return nullptr;
    }
    const auto& listeners = context->state->write_listeners;
    const auto found = listeners.find(object);
    return found != listeners.end() ? found->second : nullptr;
}

void GANTRY_instance_on_write(GANTRY_instance* instance,
                              void (*written)(GANTRY_instance* instance, const char* property,
                                              void* data),
                              void* data)
try
{
    GANTRY_LOG(gantry::log::trace, "enter");
    if (instance == nullptr)
    {
        return;
    }
    auto& listeners = instance->vctx->state->write_listeners;
    if (written == nullptr)
    {
        listeners.erase(instance->the_service);
    }
    else
    {
        listeners.try_emplace(instance->the_service, instance);
    }
    instance->written = written;
    instance->written_data = data;
}
catch (const std::exception& error)
{
    GANTRY_LOG_EXCEPTION(error.what());
}

void GANTRY_instance_get_created(GANTRY_cpp_context* context, GANTRY_instance** out, int* error)
{
    const auto here = GANTRY_HERE;
    const auto get = [&]
    {
        context = gantry::resolve(here, context);
        *out = context != nullptr ? context->state->last_created : nullptr;
        if (context == nullptr)
        {
            return gantry::already_logged(ENOTCONN);
        }
        const int failed = context->state->create_error;
        return *out == nullptr && failed == 0 ? ENOENT : failed;
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
    return instance != nullptr && !instance->is_own() &&
                   std::strcmp(instance->descriptor->interface, interface) == 0
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
    *out = context->state->objects.find(interface, path);
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
        gantry::announce_added(*instance);
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
    if (!freed.is_listed)
    {
        return; // It was freed before, in the callback that is running.
    }
    gantry::take_out(freed);
    if (!freed.is_own())
    {
        untrack(freed);
        gantry::destroy_object(freed);
    }
}
