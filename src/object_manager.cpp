#include "object_manager.hpp"

#include "connection.hpp"
#include "exception_boundary.hpp"
#include "log.hpp"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace gantry
{

/** A root manager, in its context's list. */
struct RootManager
{
    using Slot = std::unique_ptr<sd_bus_slot, decltype(&sd_bus_slot_unref)>;

    GANTRY_cpp_context& context;
    std::string path;
    std::vector<const char*> (*list_paths)(const GANTRY_cpp_context& context);
    RootManager* next;
    Slot manager{nullptr, sd_bus_slot_unref};
    Slot enumerator{nullptr, sd_bus_slot_unref};
};

namespace
{

constexpr char source_stem[] = "object_manager";
constexpr char manager_interface[] = "org.freedesktop.DBus.ObjectManager";

struct FreeStrings
{
    void operator()(char** strings) const noexcept
    {
        for (char** each = strings; each != nullptr && *each != nullptr; ++each)
        {
            std::free(*each);
        }
        std::free(strings);
    }
};
using Strings = std::unique_ptr<char*[], FreeStrings>;

/** Whether `path` is below `root`; a path isn't below itself. */
bool is_below(std::string_view root, std::string_view path)
{
    const std::size_t length = root == "/" ? 0 : root.size();
    return path.size() > length + 1 && path.starts_with(root) && path[length] == '/';
}

/**
 * sd-bus calls it for the nodes below a root. A GetManagedObjects gets the paths of all objects, as
 * sd-bus finds none below another manager. An Introspect gets none: sd-bus finds the root's
 * children itself.
 */
int on_enumerate(sd_bus* bus, const char* /*prefix*/, void* data, char*** nodes,
                 sd_bus_error* /*error*/)
{
    const auto& root = *static_cast<RootManager*>(data);
    const auto enumerate = [&]
    {
        sd_bus_message* call = sd_bus_get_current_message(bus);
        if (call == nullptr ||
            sd_bus_message_is_method_call(call, manager_interface, "GetManagedObjects") <= 0)
        {
            return 0;
        }
        const auto paths = root.list_paths(root.context);
        Strings listed{static_cast<char**>(std::calloc(paths.size() + 1, sizeof(char*)))};
        char** next = listed.get();
        for (const char* path : paths)
        {
            if (next != nullptr && is_below(root.path, path))
            {
                *next = strdup(path);
                next = *next != nullptr ? next + 1 : nullptr;
            }
        }
        if (next == nullptr)
        {
            throw std::bad_alloc();
        }
        *nodes = listed.release(); // sd-bus frees them
        return 0;
    };
    return bus_boundary(enumerate, as_error);
}

/** Appends the name and the value of each property, as sd-bus does for a signal of its own. */
int append_properties(sd_bus_message* message, sd_bus* bus, const Published& object)
{
    int result = 0;
    for (const auto* row = object.vtable; row->type != _SD_BUS_VTABLE_END && result >= 0; ++row)
    {
        if (row->type != _SD_BUS_VTABLE_PROPERTY && row->type != _SD_BUS_VTABLE_WRITABLE_PROPERTY)
        {
            continue;
        }
        const auto& property = row->x.property;
        sd_bus_error error{};
        if ((result = sd_bus_message_open_container(message, 'e', "sv")) >= 0 &&
            (result = sd_bus_message_append_basic(message, 's', property.member)) >= 0 &&
            (result = sd_bus_message_open_container(message, 'v', property.signature)) >= 0 &&
            (result = property.get(bus, object.path, object.interface, property.member, message,
                                   object.object, &error)) >= 0 &&
            (result = sd_bus_message_close_container(message)) >= 0)
        {
            result = sd_bus_message_close_container(message);
        }
        sd_bus_error_free(&error);
    }
    return result;
}

/** Makes a signal about an object and has `append` append what follows its path; sends it from a
 *  root. Returns a negative errno if that fails. */
template <class Append>
int send(const RootManager& root, const char* member, const Published& object, const Append& append)
{
    sd_bus* bus = GANTRY_get_sd_bus(root.context.bus);
    sd_bus_message* made = nullptr;
    int result =
        sd_bus_message_new_signal(bus, &made, root.path.c_str(), manager_interface, member);
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> signal{
        made, sd_bus_message_unref};
    if (result >= 0 && (result = sd_bus_message_append_basic(made, 'o', object.path)) >= 0 &&
        (result = append(made, bus)) >= 0)
    {
        result = sd_bus_send(bus, made, nullptr);
    }
    return result;
}

int append_added(sd_bus_message* message, sd_bus* bus, const Published& object)
{
    int result = 0;
    if ((result = sd_bus_message_open_container(message, 'a', "{sa{sv}}")) >= 0 &&
        (result = sd_bus_message_open_container(message, 'e', "sa{sv}")) >= 0 &&
        (result = sd_bus_message_append_basic(message, 's', object.interface)) >= 0 &&
        (result = sd_bus_message_open_container(message, 'a', "{sv}")) >= 0 &&
        (result = append_properties(message, bus, object)) >= 0 &&
        (result = sd_bus_message_close_container(message)) >= 0 &&
        (result = sd_bus_message_close_container(message)) >= 0)
    {
        result = sd_bus_message_close_container(message);
    }
    return result;
}

/** The interface of an object as a list, as sd-bus takes it. sd-bus only reads it. */
struct Interfaces
{
    explicit Interfaces(const Published& object) :
        names{const_cast<char*>(object.interface), nullptr}
    {
    }

    char* names[2];
};

/** The first root of a list that is above an object; null if none is. */
const RootManager* next_above(const RootManager* root, const Published& object)
{
    while (root != nullptr && !is_below(root->path, object.path))
    {
        root = root->next;
    }
    return root;
}

} // namespace

sd_bus_slot* add_object_manager(GANTRY_cpp_context& context, const char* path)
{
    sd_bus_slot* added = nullptr;
    const int result = sd_bus_add_object_manager(GANTRY_get_sd_bus(context.bus), &added, path);
    if (result < 0)
    {
        GANTRY_LOG(log::failed, "sd_bus_add_object_manager failed for [%s], rv=%d", path, result);
    }
    if (sd_bus_slot* earlier = std::exchange(context.object_manager, added); earlier != nullptr)
    {
        sd_bus_slot_set_floating(earlier, 1);
        sd_bus_slot_unref(earlier);
    }
    return added;
}

void remove_object_manager(GANTRY_cpp_context& context, sd_bus_slot* slot) noexcept
{
    if (slot == nullptr)
    {
        return;
    }
    if (context.object_manager == slot)
    {
        sd_bus_slot_unref(std::exchange(context.object_manager, nullptr));
        return;
    }
    // No longer floating, it has one reference, which is dropped here.
    sd_bus_slot_ref(slot);
    sd_bus_slot_set_floating(slot, 0);
    sd_bus_slot_unref(slot);
}

void add_root_manager(GANTRY_cpp_context& context, const char* path,
                      std::vector<const char*> (*list_paths)(const GANTRY_cpp_context& context))
{
    for (const auto* root = context.root_managers; root != nullptr; root = root->next)
    {
        if (root->path == path)
        {
            return;
        }
    }
    std::unique_ptr<RootManager> root{
        new RootManager{context, path, list_paths, context.root_managers}};
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    sd_bus_slot* slot = nullptr;
    throw_if_failed(sd_bus_add_object_manager(bus, &slot, path), "sd_bus_add_object_manager");
    root->manager.reset(slot);
    throw_if_failed(sd_bus_add_node_enumerator(bus, &slot, path, on_enumerate, root.get()),
                    "sd_bus_add_node_enumerator");
    root->enumerator.reset(slot);
    context.root_managers = root.release();
}

void remove_root_managers(GANTRY_cpp_context& context) noexcept
{
    while (auto* root = context.root_managers)
    {
        context.root_managers = root->next;
        delete root;
    }
}

void announce_added(GANTRY_cpp_context& context, const Published& object)
{
    // Getters run here, hence both.
    const InAnnouncement announcing;
    const auto call = [&](const char* name, const auto& announce)
    { throw_if_failed(ExceptionRelay::enter(announce), name); };

    call("sd_bus_emit_interfaces_added_strv",
         [&]
         {
             Interfaces interfaces{object};
             return sd_bus_emit_interfaces_added_strv(GANTRY_get_sd_bus(context.bus), object.path,
                                                      interfaces.names);
         });
    for (const auto* root = next_above(context.root_managers, object); root != nullptr;
         root = next_above(root->next, object))
    {
        call("InterfacesAdded",
             [&]
             {
                 return send(*root, "InterfacesAdded", object,
                             [&](sd_bus_message* message, sd_bus* bus)
                             { return append_added(message, bus, object); });
             });
    }
}

void announce_removed(GANTRY_cpp_context& context, const Published& object) noexcept
{
    Interfaces interfaces{object};
    int result = sd_bus_emit_interfaces_removed_strv(GANTRY_get_sd_bus(context.bus), object.path,
                                                     interfaces.names);
    if (result < 0)
    {
        GANTRY_LOG(log::failed, "sd_bus_emit_interfaces_removed_strv failed, rv=%d", result);
    }
    for (const auto* root = next_above(context.root_managers, object); root != nullptr;
         root = next_above(root->next, object))
    {
        result = send(*root, "InterfacesRemoved", object,
                      [&](sd_bus_message* message, sd_bus* /*bus*/)
                      { return sd_bus_message_append_strv(message, interfaces.names); });
        if (result < 0)
        {
            GANTRY_LOG(log::failed, "InterfacesRemoved from [%s] failed, rv=%d", root->path.c_str(),
                       result);
        }
    }
}

} // namespace gantry
