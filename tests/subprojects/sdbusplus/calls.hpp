// The seam with a memory: each call passes through to sd-bus and is written down, save one that is
// chosen to fail in its place.
#pragma once

#include <sdbusplus/sdbus.hpp>

#include <cerrno>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace test
{

class Calls : public sdbusplus::SdBusImpl
{
  public:
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
    static constexpr int error = EREMOTEIO;

    // What was called so far, such as "enter a {sv}".
    std::vector<std::string> made;

    // The number of the call that fails with `error`, counted from 0.
    std::size_t failing = none;

    // Without blocks every array of numbers looks like one of the other byte order.
    bool blocks = true;

    int sd_bus_message_read_basic(sd_bus_message* m, char type, void* value) override
    {
        return fails(std::string("read ") + type)
                   ? -error
                   : SdBusImpl::sd_bus_message_read_basic(m, type, value);
    }

    int sd_bus_message_read_array(sd_bus_message* m, char type, const void** ptr,
                                  size_t* size) override
    {
        if (!blocks)
        {
            return -EOPNOTSUPP;
        }
        made.push_back(std::string("read_array ") + type);
        return SdBusImpl::sd_bus_message_read_array(m, type, ptr, size);
    }

    int sd_bus_message_enter_container(sd_bus_message* m, char type, const char* contents) override
    {
        return fails(std::string("enter ") + type + " " + contents)
                   ? -error
                   : SdBusImpl::sd_bus_message_enter_container(m, type, contents);
    }

    int sd_bus_message_at_end(sd_bus_message* m, int complete) override
    {
        return fails(complete ? "at_end complete" : "at_end")
                   ? -error
                   : SdBusImpl::sd_bus_message_at_end(m, complete);
    }

    int sd_bus_message_exit_container(sd_bus_message* m) override
    {
        return fails("exit") ? -error : SdBusImpl::sd_bus_message_exit_container(m);
    }

    int sd_bus_message_verify_type(sd_bus_message* m, char type, const char* contents) override
    {
        return fails(std::string("verify ") + type + " " + contents)
                   ? -error
                   : SdBusImpl::sd_bus_message_verify_type(m, type, contents);
    }

    int sd_bus_message_skip(sd_bus_message* m, const char* types) override
    {
        return fails(std::string("skip ") + types) ? -error
                                                   : SdBusImpl::sd_bus_message_skip(m, types);
    }

    int sd_bus_message_append_basic(sd_bus_message* m, char type, const void* value) override
    {
        return fails(std::string("append ") + type)
                   ? -error
                   : SdBusImpl::sd_bus_message_append_basic(m, type, value);
    }

    int sd_bus_message_append_array(sd_bus_message* m, char type, const void* ptr,
                                    size_t size) override
    {
        return fails(std::string("append_array ") + type)
                   ? -error
                   : SdBusImpl::sd_bus_message_append_array(m, type, ptr, size);
    }

    int sd_bus_message_open_container(sd_bus_message* m, char type, const char* contents) override
    {
        return fails(std::string("open ") + type + " " + contents)
                   ? -error
                   : SdBusImpl::sd_bus_message_open_container(m, type, contents);
    }

    int sd_bus_message_close_container(sd_bus_message* m) override
    {
        return fails("close") ? -error : SdBusImpl::sd_bus_message_close_container(m);
    }

  protected:
    // Writes a call down and tells whether it is the one to fail.
    bool fails(std::string call)
    {
        made.push_back(std::move(call));
        return made.size() - 1 == failing;
    }
};

} // namespace test
