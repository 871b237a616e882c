#include "object_manager.hpp"

#include "backpressure.hpp"
#include "connection.hpp"
#include "context_state.hpp"
#include "exception_boundary.hpp"
#include "gantrycontext.hpp"
#include "instance.hpp"
#include "log.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace gantry
{
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

/**
 * sd-bus calls it for the nodes below a root. A GetManagedObjects gets the paths of all objects,
 * since sd-bus finds none below another manager. An Introspect gets none: sd-bus finds the root's
 * children itself.
 */
int on_enumerate(sd_bus* bus, const char* /*prefix*/, void* data, char*** nodes,
                 sd_bus_error* error)
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
        if (!may_get_managed(call, root.context))
        {
            return sd_bus_error_set(error, SD_BUS_ERROR_LIMITS_EXCEEDED, too_much_unread);
        }
        std::vector<const char*> paths;
        for (const auto* each = root.context.state->objects.oldest(); each != nullptr;
             each = each->newer)
        {
            if (is_below(root.path, each->path))
            {
                paths.push_back(each->path);
            }
        }
        for (const auto& [object, path] : root.context.state->own_paths)
        {
            if (is_below(root.path, path))
            {
                paths.push_back(path.c_str());
            }
        }
        Strings listed{static_cast<char**>(std::calloc(paths.size() + 1, sizeof(char*)))};
        char** next = listed.get();
        for (const char* path : paths)
        {
            if (next != nullptr)
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

int append_properties(sd_bus_message* message, sd_bus* bus, const GANTRY_instance& object)
{
    int result = 0;
    const auto& descriptor = *object.descriptor;
    for (const auto* row = descriptor.vtable; row->type != _SD_BUS_VTABLE_END && result >= 0; ++row)
    {
        if (is_property(*row))
        {
            result = append_property(message, bus, object.path, descriptor.interface, *row,
                                     object.the_service);
        }
    }
    return result;
}

/** Sends a signal about a path from a manager; `append` appends what follows the path. Returns a
 *  negative errno if that fails. */
template <class Append>
int send(GANTRY_cpp_context& context, const char* manager, const char* member, const char* path,
         const Append& append)
{
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_signal(bus, &made, manager, manager_interface, member);
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> signal{
        made, sd_bus_message_unref};
    if (result >= 0 && (result = sd_bus_message_append_basic(made, 'o', path)) >= 0 &&
        (result = append(made, bus)) >= 0)
    {
        result = sd_bus_send(bus, made, nullptr);
    }
    return result;
}

/**
 * The interfaces that a signal about an object names. A GetManagedObjects lists the standard ones
 * of a path as well, so they are added with the first interface of a path and removed with the
 * last: otherwise a client that follows the signals would keep the object.
 */
class Interfaces
{
  public:
    explicit Interfaces(const GANTRY_instance& object) :
        is_whole(object.vctx->state->objects.is_alone(object))
    {
        const char* const standard[] = {"org.freedesktop.DBus.Peer",
                                        "org.freedesktop.DBus.Introspectable",
                                        "org.freedesktop.DBus.Properties"};
        std::size_t count = 0;
        if (is_whole)
        {
            for (const char* name : standard)
            {
                names[count++] = name;
            }
            if (object.manager != nullptr)
            {
                names[count++] = manager_interface;
            }
        }
        names[count++] = object.descriptor->interface;
        names[count] = nullptr;
    }

    /** Whether the object is the only one of the library's at its path. */
    const bool is_whole;
    const char* names[6];
};

int append_added(sd_bus_message* message, sd_bus* bus, const GANTRY_instance& object)
{
    const Interfaces interfaces{object};
    int result = sd_bus_message_open_container(message, 'a', "{sa{sv}}");
    for (const char* const* name = interfaces.names; *name != nullptr && result >= 0; ++name)
    {
        if ((result = sd_bus_message_open_container(message, 'e', "sa{sv}")) >= 0 &&
            (result = sd_bus_message_append_basic(message, 's', *name)) >= 0 &&
            (result = sd_bus_message_open_container(message, 'a', "{sv}")) >= 0 &&
            // The object's own interface is the last one.
            (result = name[1] == nullptr ? append_properties(message, bus, object) : 0) >= 0 &&
            (result = sd_bus_message_close_container(message)) >= 0)
        {
            result = sd_bus_message_close_container(message);
        }
    }
    return result < 0 ? result : sd_bus_message_close_container(message);
}

/** Calls `use` with the path of each root above a path, newest first. */
template <class Use>
void for_each_root_above(const GANTRY_cpp_context& context, const char* path, const Use& use)
{
    const auto& roots = context.state->root_managers;
    std::for_each(roots.rbegin(), roots.rend(),
                  [&](const auto& root)
                  {
                      if (is_below(root->path, path))
                      {
                          use(root->path.c_str());
                      }
                  });
}

/** The manager that announces an object beside the roots above it: the nearest one, as for sd-bus,
 *  which may be at its path. Null if that is a root. */
const char* manager_of(const GANTRY_cpp_context& context, std::string_view path)
{
    const auto& roots = context.state->root_managers;
    for (auto at = path; !at.empty();)
    {
        if (at != path && std::any_of(roots.begin(), roots.end(),
                                      [at](const auto& root) { return root->path == at; }))
        {
            return nullptr;
        }
        if (const auto* object = context.state->objects.find_managed(at))
        {
            return object->path;
        }
        const auto name = at.rfind('/'); // the parent of "/a" is "/", which has none
        at = at.substr(0, name == 0 && at.size() > 1 ? 1 : name);
    }
    return nullptr;
}

/** Sends InterfacesRemoved from the path's manager, which may be among what is removed, and each
 *  root above it, and logs what fails. */
void send_removed(GANTRY_cpp_context& context, const char* path, const char* const* names)
{
    const auto here = GANTRY_HERE;
    const auto send_from = [&](const char* manager)
    {
        const int result =
            send(context, manager, "InterfacesRemoved", path,
                 [names](sd_bus_message* message, sd_bus* /*bus*/)
                 { return sd_bus_message_append_strv(message, const_cast<char**>(names)); });
        if (result < 0)
        {
            GANTRY_LOG_AT(here, log::failed, "InterfacesRemoved from [%s] failed, rv=%d", manager,
                          result);
        }
    };
    const auto* name = names;
    while (*name != nullptr && *name != manager_interface)
    {
        ++name;
    }
    if (*name != nullptr)
    {
        send_from(path);
    }
    else if (const char* const manager = manager_of(context, path))
    {
        send_from(manager);
    }
    for_each_root_above(context, path, send_from);
}

/** Sends the InterfacesRemoved of a path, if it waits. */
void send_waiting_removed(GANTRY_cpp_context& context, const char* path)
{
    auto& removed = context.state->removed_interfaces;
    if (const auto found = removed.find(path); found != removed.end())
    {
        found->second.push_back(nullptr);
        send_removed(context, path, found->second.data());
        // Forgotten before it is erased, since another path's entry may get the same address.
        PendingChanges::Change sent;
        context.state->changes.take(&found->second, sent);
        removed.erase(found);
    }
}

/** Has the InterfacesRemoved of a path wait. Returns false if it need not or can't wait. */
bool removed_waits(GANTRY_cpp_context& context, const char* path, const char* const* names)
try
{
    if (!must_wait_for_bus(context))
    {
        return false;
    }
    auto& removed = context.state->removed_interfaces;
    const auto [entry, is_new] = removed.try_emplace(path);
    if (is_new && !wait_for_bus(context, &entry->second,
                                [&context, of = std::string(path)]
                                { send_waiting_removed(context, of.c_str()); }))
    {
        removed.erase(entry);
        return false;
    }
    auto& left = entry->second;
    for (; *names != nullptr; ++names)
    {
        if (std::find(left.begin(), left.end(), *names) == left.end())
        {
            left.push_back(*names);
        }
    }
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

/** Sends InterfacesAdded from an object's path and each root above it. */
void send_added(GANTRY_instance& object)
{
    object.mark = 0;
    send_waiting_removed(*object.vctx, object.path);
    // Getters run inside: the relay keeps their exceptions, InCallback marks the callback.
    const InCallback announcing;
    const auto call = [&](const char* name, const auto& announce)
    { throw_if_failed(ExceptionRelay::enter(announce), name); };

    const auto send_from = [&](const char* manager)
    {
        call("InterfacesAdded",
             [&]
             {
                 return send(*object.vctx, manager, "InterfacesAdded", object.path,
                             [&](sd_bus_message* message, sd_bus* on)
                             { return append_added(message, on, object); });
             });
    };
    Interfaces interfaces{object};
    sd_bus* bus = GANTRY_get_sd_bus(object.vctx->bus);
    if (object.is_own())
    {
        // sd-bus would announce it from a root as well.
        if (const char* const manager = manager_of(*object.vctx, object.path))
        {
            send_from(manager);
        }
    }
    else if (interfaces.is_whole)
    {
        call("sd_bus_emit_object_added",
             [&] { return sd_bus_emit_object_added(bus, object.path); });
    }
    else
    {
        call("sd_bus_emit_interfaces_added_strv",
             [&]
             {
                 return sd_bus_emit_interfaces_added_strv(bus, object.path,
                                                          const_cast<char**>(interfaces.names));
             });
    }
    for_each_root_above(*object.vctx, object.path, send_from);
}

/** Adds a root manager, unless there is one at that path. */
void add_root_manager(GANTRY_cpp_context& context, const char* path)
{
    auto& roots = context.state->root_managers;
    if (std::any_of(roots.begin(), roots.end(),
                    [path](const auto& root) { return root->path == path; }))
    {
        return;
    }
    auto root = std::make_unique<RootManager>(context, path);
    roots.reserve(roots.size() + 1);
    sd_bus* bus = GANTRY_get_sd_bus(context.bus);
    sd_bus_slot* slot = nullptr;
    throw_if_failed(sd_bus_add_object_manager(bus, &slot, path), "sd_bus_add_object_manager");
    root->manager.reset(slot);
    throw_if_failed(sd_bus_add_node_enumerator(bus, &slot, path, on_enumerate, root.get()),
                    "sd_bus_add_node_enumerator");
    root->enumerator.reset(slot);
    roots.push_back(std::move(root));
}

} // namespace

void announce_added(GANTRY_instance& object)
{
    auto& context = *object.vctx;
    if (!must_wait_for_bus(context) ||
        !wait_for_bus(context, object.the_service, [&object] { send_added(object); }))
    {
        send_changes_of(*static_cast<const Object*>(object.the_service));
        send_added(object);
    }
}

void announce_removed(const GANTRY_instance& object) noexcept
{
    auto& context = *object.vctx;
    PendingChanges::Change change;
    auto& changes = context.state->changes;
    if (changes.take(object.the_service, change) && change.tell && changes.is_unknown(object.mark))
    {
        return;
    }
    const Interfaces interfaces{object};
    if (!removed_waits(context, object.path, interfaces.names))
    {
        send_removed(context, object.path, interfaces.names);
    }
}

} // namespace gantry

void GANTRY_context_manage(GANTRY_cpp_context* context, const char* path, int* error)
{
    using namespace gantry;

    GANTRY_LOG(log::trace, "enter");
    const auto here = GANTRY_HERE;
    const auto manage = [&]
    {
        if (path == nullptr || sd_bus_object_path_is_valid(path) <= 0)
        {
            return EINVAL;
        }
        context = resolve(here, context);
        if (context == nullptr)
        {
            return already_logged(ENOTCONN);
        }
        add_root_manager(*context, path);
        return 0;
    };
    host_boundary(here, error, manage);
}
