// A match calls a function for each message that its rule selects, as long as this holder exists.
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/message.hpp"
#include "sdbusplus/slot.hpp"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace sdbusplus
{
namespace bus
{
namespace match
{

/** If the connection refuses the match, nothing is called. */
struct match
{
    using callback_t = std::function<void(message_t&)>;

    match(bus_t& b, const char* rule, sd_bus_message_handler_t handler, void* context = nullptr) :
        slot(added(b, rule, handler, context))
    {
    }

    match(bus_t& b, const std::string& rule, sd_bus_message_handler_t handler,
          void* context = nullptr) :
        match(b, rule.c_str(), handler, context)
    {
    }

    /** An exception of the callback ends the process: its caller is written in C. */
    match(bus_t& b, const char* rule, callback_t callback) :
        match(b, rule, std::make_unique<callback_t>(std::move(callback)))
    {
    }

    match(bus_t& b, const std::string& rule, callback_t callback) :
        match(b, rule.c_str(), std::move(callback))
    {
    }

  private:
    match(bus_t& b, const char* rule, std::unique_ptr<callback_t> callback) :
        match(b, rule, call, callback.get())
    {
        called = std::move(callback);
    }

    static sd_bus_slot* added(bus_t& b, const char* rule, sd_bus_message_handler_t handler,
                              void* context)
    {
        sd_bus_slot* slot = nullptr;
        sd_bus_add_match(details::bus_friend::get_busp(b), &slot, rule, handler, context);
        return slot;
    }

    static int call(sd_bus_message* m, void* context, sd_bus_error* /*error*/) noexcept
    {
        message_t received(m);
        (*static_cast<callback_t*>(context))(received);
        return 0;
    }

    std::unique_ptr<callback_t> called; // outlives the slot
    slot_t slot;
};

/** Parts of a rule, which are concatenated. */
namespace rules
{

inline std::string part(const std::string& key, const std::string& value)
{
    return key + "='" + value + "',";
}

namespace type
{
inline std::string signal()
{
    return part("type", "signal");
}
} // namespace type

inline std::string sender(const std::string& name)
{
    return part("sender", name);
}

inline std::string interface(const std::string& name)
{
    return part("interface", name);
}

inline std::string member(const std::string& name)
{
    return part("member", name);
}

inline std::string path(const std::string& path)
{
    return part("path", path);
}

inline std::string path_namespace(const std::string& path)
{
    return part("path_namespace", path);
}

inline std::string argN(std::size_t index, const std::string& value)
{
    return part("arg" + std::to_string(index), value);
}

inline std::string nameOwnerChanged()
{
    return type::signal() + sender("org.freedesktop.DBus") + member("NameOwnerChanged");
}

inline std::string interfacesAdded()
{
    return type::signal() + interface("org.freedesktop.DBus.ObjectManager") +
           member("InterfacesAdded");
}

inline std::string interfacesRemoved()
{
    return type::signal() + interface("org.freedesktop.DBus.ObjectManager") +
           member("InterfacesRemoved");
}

inline std::string propertiesChanged(const std::string& of, const std::string& changed)
{
    return type::signal() + path(of) + member("PropertiesChanged") +
           interface("org.freedesktop.DBus.Properties") + argN(0, changed);
}

} // namespace rules
} // namespace match

using match_t = match::match;

} // namespace bus
} // namespace sdbusplus
