// What tests of objects on the bus start from: a host on this thread, which claims no name, and a
// client that lets it serve.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/time.h>

#include <gantry/gantry.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>
#include <sdbusplus/exception.hpp>

#include "src/interpose.hpp"
#include "support/captured_log.hpp"
#include "support/client.hpp"
#include "support/private_bus.hpp"
#include "support/program.hpp"

using support::logged;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Sample = GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest;

// An exception with a name of its own, as sdbusplus's conversions throw.
struct Conversion : sdbusplus::exception::internal_exception
{
    explicit Conversion(const char* its_name) : error(its_name)
    {
    }
    const char* name() const noexcept override
    {
        return error;
    }
    const char* description() const noexcept override
    {
        return "of the host\xFF";
    }
    int get_errno() const noexcept override
    {
        return EINVAL;
    }
    const char* error;
};

class Served : public testing::Test
{
  protected:
    Served()
    {
        make();
        client.subscribe();
    }
    ~Served() override
    {
        GANTRY_context_free(&context);
    }

    // A context in place of the one there is.
    void make()
    {
        GANTRY_context_free(&context);
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        service = context->bus.get_unique_name();
        logged();
    }

    // A sanitizer has a heap of its own, without figures.
    static std::size_t heap_in_use()
    {
        return mallinfo2().uordblks + mallinfo2().hblkhd;
    }

    // Gives the new object, or null.
    template <class Table>
    GANTRY_instance* publish(void (*instantiate)(GANTRY_cpp_context*, const Table*, const char*,
                                                 void*),
                             const char* path, const std::type_identity_t<Table>* table = nullptr)
    {
        GANTRY_instance* created = nullptr;
        instantiate(context, table, path, nullptr);
        GANTRY_instance_get_created(context, &created, nullptr);
        return created;
    }

    // What is sent when an object is freed that has this interface alone.
    static std::string removed(const std::string& path, const std::string& interface)
    {
        const std::string standard = "org.freedesktop.DBus.";
        return path + " InterfacesRemoved oas \"" + path + "\", [\"" + standard + "Peer\", \"" +
               standard + "Introspectable\", \"" + standard + "Properties\", \"" + standard +
               "ObjectManager\", \"" + interface + "\"]\n";
    }

    // The object that was put on the bus last.
    template <class Class>
    Class& newest()
    {
        return *static_cast<Class*>(context->tracker.back().object);
    }

    // A line for each property that was announced as changed since the last look: "Member: value".
    std::string announced()
    {
        client.settle(service);
        std::string lines;
        for (const support::Signal& signal : client.signals())
        {
            const bool is_change = signal.member == "PropertiesChanged";
            EXPECT_TRUE(!is_change || signal.body.ends_with(", []"))
                << signal; // none is invalidated
            for (const auto& [member, value] : signal.changed)
            {
                lines += member + ": " + value + '\n';
            }
        }
        client.signals().clear();
        return lines;
    }

    // A line for each signal of the host's since the last look: "PATH MEMBER BODY".
    std::string sent()
    {
        client.settle(service);
        std::string lines;
        for (const support::Signal& signal : client.signals())
        {
            if (signal.sender == service)
            {
                lines += signal.path + ' ' + signal.member + ' ' + signal.body + '\n';
            }
        }
        client.signals().clear();
        return lines;
    }

    GANTRY_cpp_context* context = nullptr;
    std::string service;
    const std::function<void()> pass = [this]
    { context ? GANTRY_dbus_loop_one_pass(context) : void(); };
    support::Client client{pass};
};
