// The interface between this layer and libsystemd: one virtual function per sd_bus_* call, so that
// a test can replace the bus. Each bus and message holds the interface that its calls go through.
#pragma once

#if __cplusplus < 202002L
#error "The classes of D-Bus objects are C++20: compile with -std=c++20 or later"
#endif

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>

namespace sdbusplus
{

/** Arguments, results and ownership are those of the sd-bus function of the same name. */
class SdBusInterface
{
  public:
    virtual int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                                         const char* interface, const sd_bus_vtable* vtable,
                                         void* userdata) = 0;
    virtual int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path,
                                                    const char* interface, const char** names) = 0;
    virtual int sd_bus_error_set(sd_bus_error* e, const char* name, const char* message) = 0;
    virtual int sd_bus_error_set_errno(sd_bus_error* e, int error) = 0;
    virtual void sd_bus_error_free(sd_bus_error* e) = 0;
    virtual sd_bus* sd_bus_flush_close_unref(sd_bus* bus) = 0;
    virtual int sd_bus_get_unique_name(sd_bus* bus, const char** unique) = 0;
    virtual sd_bus* sd_bus_ref(sd_bus* bus) = 0;
    virtual int sd_bus_send(sd_bus* bus, sd_bus_message* m, uint64_t* cookie) = 0;
    virtual sd_bus* sd_bus_unref(sd_bus* bus) = 0;
    virtual int sd_bus_message_append_basic(sd_bus_message* m, char type, const void* value) = 0;
    virtual int sd_bus_message_at_end(sd_bus_message* m, int complete) = 0;
    virtual int sd_bus_message_close_container(sd_bus_message* m) = 0;
    virtual int sd_bus_message_enter_container(sd_bus_message* m, char type,
                                               const char* contents) = 0;
    virtual int sd_bus_message_exit_container(sd_bus_message* m) = 0;
    virtual sd_bus* sd_bus_message_get_bus(sd_bus_message* m) = 0;
    virtual int sd_bus_message_get_cookie(sd_bus_message* m, uint64_t* cookie) = 0;
    virtual int sd_bus_message_get_reply_cookie(sd_bus_message* m, uint64_t* cookie) = 0;
    virtual int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** m) = 0;
    virtual int sd_bus_message_new_signal(sd_bus* bus, sd_bus_message** m, const char* path,
                                          const char* interface, const char* member) = 0;
    virtual int sd_bus_message_open_container(sd_bus_message* m, char type,
                                              const char* contents) = 0;
    virtual int sd_bus_message_read_basic(sd_bus_message* m, char type, void* value) = 0;
    virtual sd_bus_message* sd_bus_message_ref(sd_bus_message* m) = 0;
    virtual int sd_bus_message_skip(sd_bus_message* m, const char* types) = 0;
    virtual sd_bus_message* sd_bus_message_unref(sd_bus_message* m) = 0;
    virtual int sd_bus_message_verify_type(sd_bus_message* m, char type, const char* contents) = 0;

  protected:
    // Never deleted through the base: the one instance that matters lives as long as the process.
    ~SdBusInterface() = default;
};

/** Forwards every call to libsystemd. */
class SdBusImpl : public SdBusInterface
{
  public:
    int sd_bus_add_object_vtable(sd_bus* bus, sd_bus_slot** slot, const char* path,
                                 const char* interface, const sd_bus_vtable* vtable,
                                 void* userdata) override
    {
        return ::sd_bus_add_object_vtable(bus, slot, path, interface, vtable, userdata);
    }

    int sd_bus_emit_properties_changed_strv(sd_bus* bus, const char* path, const char* interface,
                                            const char** names) override
    {
        // sd-bus only reads the list, although its parameter isn't const.
        return ::sd_bus_emit_properties_changed_strv(bus, path, interface,
                                                     const_cast<char**>(names));
    }

    int sd_bus_error_set(sd_bus_error* e, const char* name, const char* message) override
    {
        return ::sd_bus_error_set(e, name, message);
    }

    int sd_bus_error_set_errno(sd_bus_error* e, int error) override
    {
        return ::sd_bus_error_set_errno(e, error);
    }

    void sd_bus_error_free(sd_bus_error* e) override
    {
        ::sd_bus_error_free(e);
    }

    sd_bus* sd_bus_flush_close_unref(sd_bus* bus) override
    {
        return ::sd_bus_flush_close_unref(bus);
    }

    int sd_bus_get_unique_name(sd_bus* bus, const char** unique) override
    {
        return ::sd_bus_get_unique_name(bus, unique);
    }

    sd_bus* sd_bus_ref(sd_bus* bus) override
    {
        return ::sd_bus_ref(bus);
    }

    int sd_bus_send(sd_bus* bus, sd_bus_message* m, uint64_t* cookie) override
    {
        return ::sd_bus_send(bus, m, cookie);
    }

    sd_bus* sd_bus_unref(sd_bus* bus) override
    {
        return ::sd_bus_unref(bus);
    }

    int sd_bus_message_append_basic(sd_bus_message* m, char type, const void* value) override
    {
        return ::sd_bus_message_append_basic(m, type, value);
    }

    int sd_bus_message_at_end(sd_bus_message* m, int complete) override
    {
        return ::sd_bus_message_at_end(m, complete);
    }

    int sd_bus_message_close_container(sd_bus_message* m) override
    {
        return ::sd_bus_message_close_container(m);
    }

    int sd_bus_message_enter_container(sd_bus_message* m, char type, const char* contents) override
    {
        return ::sd_bus_message_enter_container(m, type, contents);
    }

    int sd_bus_message_exit_container(sd_bus_message* m) override
    {
        return ::sd_bus_message_exit_container(m);
    }

    sd_bus* sd_bus_message_get_bus(sd_bus_message* m) override
    {
        return ::sd_bus_message_get_bus(m);
    }

    int sd_bus_message_get_cookie(sd_bus_message* m, uint64_t* cookie) override
    {
        return ::sd_bus_message_get_cookie(m, cookie);
    }

    int sd_bus_message_get_reply_cookie(sd_bus_message* m, uint64_t* cookie) override
    {
        return ::sd_bus_message_get_reply_cookie(m, cookie);
    }

    int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** m) override
    {
        return ::sd_bus_message_new_method_return(call, m);
    }

    int sd_bus_message_new_signal(sd_bus* bus, sd_bus_message** m, const char* path,
                                  const char* interface, const char* member) override
    {
        return ::sd_bus_message_new_signal(bus, m, path, interface, member);
    }

    int sd_bus_message_open_container(sd_bus_message* m, char type, const char* contents) override
    {
        return ::sd_bus_message_open_container(m, type, contents);
    }

    int sd_bus_message_read_basic(sd_bus_message* m, char type, void* value) override
    {
        return ::sd_bus_message_read_basic(m, type, value);
    }

    sd_bus_message* sd_bus_message_ref(sd_bus_message* m) override
    {
        return ::sd_bus_message_ref(m);
    }

    int sd_bus_message_skip(sd_bus_message* m, const char* types) override
    {
        return ::sd_bus_message_skip(m, types);
    }

    sd_bus_message* sd_bus_message_unref(sd_bus_message* m) override
    {
        return ::sd_bus_message_unref(m);
    }

    int sd_bus_message_verify_type(sd_bus_message* m, char type, const char* contents) override
    {
        return ::sd_bus_message_verify_type(m, type, contents);
    }

  protected:
    ~SdBusImpl() = default;
};

extern SdBusImpl& sdbus_impl;

} // namespace sdbusplus
