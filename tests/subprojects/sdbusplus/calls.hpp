// The seam with a memory: each call passes through to sd-bus and is written down, save one that is
// chosen to fail in its place. And the messages that such calls are made on.
#pragma once

#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>
#include <support/client.hpp>
#include <support/render.hpp>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace test
{

using support::Message;

// Ends a message's construction and puts the reading position at its start.
inline Message seal(Message m)
{
    static uint64_t cookie = 0;
    support::check(sd_bus_message_seal(m.get(), ++cookie, 0), "sd_bus_message_seal");
    support::check(sd_bus_message_rewind(m.get(), true), "sd_bus_message_rewind");
    return m;
}

// A method call that sd-bus itself filled, ready to be read.
template <typename... Args>
Message sealed(support::Client& client, const char* types, Args... args)
{
    Message m = client.new_call({"a.Service", "/some/object"}, "some.Interface", "Member");
    support::check(*types == '\0' ? 0 : sd_bus_message_append(m.get(), types, args...), types);
    return seal(std::move(m));
}

// The description of the SdBusError that something throws, or "none".
template <typename Failing>
std::string failure(const Failing& failing)
{
    try
    {
        failing();
    }
    catch (const sdbusplus::exception::SdBusError& e)
    {
        return e.description();
    }
    return "none";
}

class Calls : public sdbusplus::SdBusImpl
{
  public:
    static constexpr int error = EREMOTEIO;

    // What was called so far, such as "enter a {sv}".
    std::vector<std::string> made;

    // The number of the call that fails with `error`, counted from 0.
    std::size_t failing = SIZE_MAX;

    // Without blocks every array of numbers looks like one of the other byte order.
    bool blocks = true;

    [[nodiscard]] std::string all() const
    {
        std::string text;
        for (const std::string& call : made)
        {
            text += (text.empty() ? "" : ", ") + call;
        }
        return text;
    }

    int sd_bus_message_read_basic(sd_bus_message* m, char type, void* value) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_read_basic(m, type, value); }, "read ",
                    type);
    }

    int sd_bus_message_read_array(sd_bus_message* m, char type, const void** ptr,
                                  size_t* size) override
    {
        return blocks ? SdBusImpl::sd_bus_message_read_array(m, type, ptr, size) : -EOPNOTSUPP;
    }

    int sd_bus_message_enter_container(sd_bus_message* m, char type, const char* inner) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_enter_container(m, type, inner); },
                    "enter ", type, inner);
    }

    int sd_bus_message_at_end(sd_bus_message* m, int complete) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_at_end(m, complete); }, "at_end");
    }

    int sd_bus_message_exit_container(sd_bus_message* m) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_exit_container(m); }, "exit");
    }

    int sd_bus_message_verify_type(sd_bus_message* m, char type, const char* inner) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_verify_type(m, type, inner); },
                    "verify ", type, inner);
    }

    int sd_bus_message_skip(sd_bus_message* m, const char* types) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_skip(m, types); }, "skip ", *types);
    }

    int sd_bus_message_append_basic(sd_bus_message* m, char type, const void* value) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_append_basic(m, type, value); },
                    "append ", type);
    }

    int sd_bus_message_append_array(sd_bus_message* m, char type, const void* ptr,
                                    size_t size) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_append_array(m, type, ptr, size); },
                    "append_array ", type);
    }

    int sd_bus_message_open_container(sd_bus_message* m, char type, const char* inner) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_open_container(m, type, inner); },
                    "open ", type, inner);
    }

    int sd_bus_message_close_container(sd_bus_message* m) override
    {
        return step([&] { return SdBusImpl::sd_bus_message_close_container(m); }, "close");
    }

  protected:
    // Writes a call down and makes it, unless it is the one to fail.
    template <typename Call>
    int step(const Call& call, std::string text, char type = '\0', const char* inner = nullptr)
    {
        text += type == '\0' ? "" : std::string(1, type);
        text += inner == nullptr ? "" : std::string(" ") + inner;
        made.push_back(std::move(text));
        return made.size() - 1 == failing ? -error : call();
    }
};

} // namespace test
