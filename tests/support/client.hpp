// A D-Bus client for a test whose service lives on the same thread. A blocking call would wait for
// a service that cannot run, so a call is sent and then the client takes turns: one run of the
// test's pump (a pass of the service's loop), one look at its own connection, a short sleep on it.
// A service on another thread or process needs no pump. `deadline` bounds each wait.
//
// The connection is the client's own, on no event loop. Only libsystemd is used, so a fault of the
// code under test cannot hide in here. What sd-bus refuses is thrown as std::system_error.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <systemd/sd-bus.h>

#include "support/check.hpp"

namespace support
{

// Long enough for a busy machine under valgrind; reached only by a failing test.
inline constexpr std::chrono::seconds deadline{30};

template <auto Function>
struct Release
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Function(object);
    }
};
using Message = std::unique_ptr<sd_bus_message, Release<sd_bus_message_unref>>;

// Where a call goes: a well-known or unique name, and an object path.
struct Object
{
    std::string service;
    std::string path;
};

struct Reply
{
    std::string text = "no reply"; // the reply rendered, or "error NAME: MESSAGE"
    Message message;               // the reply or error itself, rewound; null without one
    std::unique_ptr<sd_bus_slot, Release<sd_bus_slot_unref>> slot; // of the call

    [[nodiscard]] bool ok() const
    {
        return message != nullptr && sd_bus_message_is_method_error(message.get(), nullptr) == 0;
    }
    // Throws std::runtime_error with the text when this is no success.
    sd_bus_message* body() const
    {
        return ok() ? message.get() : throw std::runtime_error(text);
    }
};

using Properties = std::map<std::string, std::string>; // name to value, such as `s "text"`

struct Signal
{
    std::string sender; // a unique name
    std::string path;
    std::string member;
    std::string body;   // rendered
    Properties changed; // of PropertiesChanged alone

    friend std::ostream& operator<<(std::ostream& out, const Signal& signal)
    {
        return out << signal.path << ' ' << signal.member << ' ' << signal.body;
    }
};

class Client
{
  public:
    // A call that was sent and may be answered later. Dropping it drops the interest in the reply.
    using Pending = std::unique_ptr<Reply>; // sd-bus holds its address

    // Connects to $DBUS_SYSTEM_BUS_ADDRESS.
    explicit Client(std::function<void()> pump = [] {});

    // Calls a method and waits for the reply, until the deadline. `types` and `args` are those of
    // sd_bus_message_append: C strings, integers promoted as for printf.
    template <typename... Args>
    Reply call(const Object& object, const char* interface, const char* member,
               const char* types = "", Args... args)
    {
        return wait(start(object, interface, member, types, args...));
    }

    // Sends the call alone; it leaves with the next turn.
    template <typename... Args>
    Pending start(const Object& object, const char* interface, const char* member,
                  const char* types = "", Args... args)
    {
        sd_bus_message* call = nullptr;
        check(sd_bus_message_new_method_call(bus(), &call, object.service.c_str(),
                                             object.path.c_str(), interface, member));
        return start(append(Message(call), types, args...));
    }
    // For bodies that sd_bus_message_append can't express.
    Pending start(const Message& call);
    Reply wait(Pending pending);

    // Takes turns until the condition holds; false when the deadline came first.
    bool wait_for(const std::function<bool()>& condition);

    // A round trip to the service behind all that was sent before. When it returns, the service has
    // handled every earlier call of this client, and what it had sent by then is here: a call
    // without a reply was left unanswered. Throws std::runtime_error at the deadline.
    void settle(const std::string& service);

    // org.freedesktop.DBus.Properties.
    Reply get(const Object& object, const char* interface, const char* property)
    {
        return call(object, "org.freedesktop.DBus.Properties", "Get", "ss", interface, property);
    }
    template <typename... Args>
    Reply set(const Object& object, const char* interface, const char* property, const char* type,
              Args... args)
    {
        return call(object, "org.freedesktop.DBus.Properties", "Set", "ssv", interface, property,
                    type, args...);
    }
    // These throw std::runtime_error with the reply's text when it is no success.
    Properties get_all(const Object& object, const char* interface);
    std::string introspect(const Object& object);

    // Collects the signals of a match rule from here on. The daemon's own (NameAcquired and so on)
    // are left out. Overlapping rules collect a signal once for each.
    void subscribe(const std::string& rule = "type='signal'");
    std::vector<Signal>& signals() noexcept
    {
        return signals_;
    }

    // Broadcasts a signal, or sends it to `destination` alone if that is not null, and flushes.
    template <typename... Args>
    void emit(const char* destination, const char* path, const char* interface, const char* member,
              const char* types = "", Args... args)
    {
        const Message signal = append(new_signal(path, interface, member), types, args...);
        check(sd_bus_send_to(bus(), signal.get(), destination, nullptr));
        check(sd_bus_flush(bus()));
    }
    Message new_signal(const char* path, const char* interface, const char* member);

    // By the daemon's word; empty when the name has no owner.
    std::string name_owner(const char* name);
    // For calls of sd-bus that wait for the daemon alone.
    [[nodiscard]] sd_bus* bus() const noexcept
    {
        return bus_.get();
    }

  private:
    template <typename... Args>
    static Message append(Message message, const char* types, Args... args)
    {
        check(*types == '\0' ? 0 : sd_bus_message_append(message.get(), types, args...));
        return message;
    }
    std::function<void()> pump_;
    std::vector<Signal> signals_;
    std::unique_ptr<sd_bus, Release<sd_bus_flush_close_unref>> bus_;
};

} // namespace support
