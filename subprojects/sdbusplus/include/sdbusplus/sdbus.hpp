// What this layer calls of libsystemd on behalf of buses and messages. Each of these holds the
// SdBusInterface that its calls go through.
#pragma once

#if __cplusplus < 202002L
#error "The classes of D-Bus objects are C++20: compile with -std=c++20 or later"
#endif

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>

namespace sdbusplus
{

/**
 * Forwards every call to the sd-bus function of the same name. A derived class overrides what it
 * replaces.
 */
class SdBusInterface
{
  public:
    virtual int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                                         const char* interface, const sd_bus_vtable* vtable,
                                         void* userdata)
    {
        return ::sd_bus_add_object_vtable(bus, slot, path, interface, vtable, userdata);
    }

    virtual int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path,
                                                    const char* interface, const char** names)
    {
        // sd-bus only reads the list, although its parameter isn't const.
        return ::sd_bus_emit_properties_changed_strv(bus, path, interface,
                                                     const_cast<char**>(names));
    }

    virtual int sd_bus_error_set(sd_bus_error* e, const char* name, const char* message)
    {
        return ::sd_bus_error_set(e, name, message);
    }

    virtual int sd_bus_error_set_errno(sd_bus_error* e, int error)
    {
        return ::sd_bus_error_set_errno(e, error);
    }

    virtual void sd_bus_error_free(sd_bus_error* e)
    {
        ::sd_bus_error_free(e);
    }

    virtual sd_bus* sd_bus_flush_close_unref(sd_bus* bus)
    {
        return ::sd_bus_flush_close_unref(bus);
    }

    virtual int sd_bus_get_unique_name(sd_bus* bus, const char** unique)
    {
        return ::sd_bus_get_unique_name(bus, unique);
    }

    virtual sd_bus* sd_bus_ref(sd_bus* bus)
    {
        return ::sd_bus_ref(bus);
    }

    virtual int sd_bus_send(sd_bus* bus, sd_bus_message* m, uint64_t* cookie)
    {
        return ::sd_bus_send(bus, m, cookie);
    }

    virtual sd_bus* sd_bus_unref(sd_bus* bus)
    {
        return ::sd_bus_unref(bus);
    }

    virtual int sd_bus_message_append_basic(sd_bus_message* m, char type, const void* value)
    {
        return ::sd_bus_message_append_basic(m, type, value);
    }

    virtual int sd_bus_message_at_end(sd_bus_message* m, int complete)
    {
        return ::sd_bus_message_at_end(m, complete);
    }

    virtual int sd_bus_message_close_container(sd_bus_message* m)
    {
        return ::sd_bus_message_close_container(m);
    }

    virtual int sd_bus_message_enter_container(sd_bus_message* m, char type, const char* contents)
    {
        return ::sd_bus_message_enter_container(m, type, contents);
    }

    virtual int sd_bus_message_exit_container(sd_bus_message* m)
    {
        return ::sd_bus_message_exit_container(m);
    }

    virtual sd_bus* sd_bus_message_get_bus(sd_bus_message* m)
    {
        return ::sd_bus_message_get_bus(m);
    }

    virtual int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** m)
    {
        return ::sd_bus_message_new_method_return(call, m);
    }

    virtual int sd_bus_message_new_signal(sd_bus* bus, sd_bus_message** m, const char* path,
                                          const char* interface, const char* member)
    {
        return ::sd_bus_message_new_signal(bus, m, path, interface, member);
    }

    virtual int sd_bus_message_open_container(sd_bus_message* m, char type, const char* contents)
    {
        return ::sd_bus_message_open_container(m, type, contents);
    }

    virtual int sd_bus_message_read_basic(sd_bus_message* m, char type, void* value)
    {
        return ::sd_bus_message_read_basic(m, type, value);
    }

    virtual sd_bus_message* sd_bus_message_ref(sd_bus_message* m)
    {
        return ::sd_bus_message_ref(m);
    }

    virtual int sd_bus_message_skip(sd_bus_message* m, const char* types)
    {
        return ::sd_bus_message_skip(m, types);
    }

    virtual sd_bus_message* sd_bus_message_unref(sd_bus_message* m)
    {
        return ::sd_bus_message_unref(m);
    }

    virtual int sd_bus_message_verify_type(sd_bus_message* m, char type, const char* contents)
    {
        return ::sd_bus_message_verify_type(m, type, contents);
    }

  protected:
    // Never deleted through the base: the one instance that matters lives as long as the process.
    ~SdBusInterface() = default;
};

class SdBusImpl : public SdBusInterface
{
};

extern SdBusImpl sdbus_impl;

} // namespace sdbusplus
