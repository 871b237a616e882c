/*
 * Measures a method call on the library, on raw sd-bus and on sdbus-c++: the sample interface's
 * methods, which give back what they are given, one of them only after its callback has returned.
 * sd-bus asks the bus who the caller is before it runs any of them, in all servers.
 *
 *     methods METHODS_GANTRY METHODS_RAW METHODS_SDBUSCPP
 */
#include "measure.hpp"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using bench::check;

struct MessageUnref
{
    void operator()(sd_bus_message* message) const
    {
        sd_bus_message_unref(message);
    }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

/** A server, and the name it has on the bus. */
struct Server
{
    std::string service;
    bench::Process process;
};

/**
 * A call that is measured, and how far ours may be from each reference. Of calls in flight there is
 * no bar beside sdbus-c++: it takes all that has arrived in one go, where sd_event_loop looks at
 * all sources of events between two messages.
 */
struct Call
{
    const char* what;
    const char* method;
    void (*append)(sd_bus_message* message);
    int in_flight;
    int calls; // a round
    std::optional<double> dbus_bar;
    std::optional<double> sd_bar;
    std::optional<double> sdbuscpp_bar;
    /** sdbus-c++'s own event loop has no event source that could answer a call later. */
    bool in_sdbuscpp = true;
};

void append_int(sd_bus_message* message)
{
    check(sd_bus_message_append(message, "i", 42), "sd_bus_message_append");
}

void append_unsigned(sd_bus_message* message)
{
    check(sd_bus_message_append(message, "u", 42), "sd_bus_message_append");
}

void append_string(sd_bus_message* message)
{
    static const std::string text(64, 'x');
    check(sd_bus_message_append(message, "s", text.c_str()), "sd_bus_message_append");
}

/** 100 names of devices, each behind `prefix`. */
void append_names(sd_bus_message* message, const char* prefix)
{
    check(sd_bus_message_open_container(message, 'a', "s"), "sd_bus_message_open_container");
    for (int number = 0; number < 100; ++number)
    {
        const std::string text = prefix + ("NIC.Slot." + std::to_string(number)) + "-1-1";
        check(sd_bus_message_append(message, "s", text.c_str()), "sd_bus_message_append");
    }
    check(sd_bus_message_close_container(message), "sd_bus_message_close_container");
}

void append_short_names(sd_bus_message* message)
{
    append_names(message, "");
}

void append_long_names(sd_bus_message* message)
{
    append_names(message, "System.Chassis.Embedded:");
}

template <std::size_t kibibytes>
void append_bytes(sd_bus_message* message)
{
    static const std::vector<unsigned char> block(kibibytes * 1024, 0x5A);
    check(sd_bus_message_append_array(message, 'y', block.data(), block.size()),
          "sd_bus_message_append_array");
}

// glibc's malloc gives what is free at the heap's end back to the system, in a call that will need
// it again for the next, until it has once freed a block of more than 128 KiB. Which server has
// done so before the first array of 256 KiB is chance; from there on all have.
constexpr std::array calls{
    Call{"Try_int32", "Try_int32", append_int, 1, 500, 1.10, 1.10, 1.05},
    Call{"Try_int32, 64 in flight", "Try_int32", append_int, 64, 2000, 1.10, 1.10, {}},
    Call{
        "Try_uint32, answered later", "Try_uint32", append_unsigned, 1, 500, 1.15, 1.15, {}, false},
    Call{"Try_string, 64 bytes", "Try_string", append_string, 1, 500, 1.10, 1.10, 1.05},
    Call{"TryArrayString, 100 of 15 bytes", "TryArrayString", append_short_names, 1, 200, 1.10,
         1.10, 0.80},
    Call{"TryArrayString, 100 of 39 bytes", "TryArrayString", append_long_names, 1, 200, 1.10, 1.10,
         0.80},
    Call{"Try_array, 64 KiB at first", "Try_array", append_bytes<64>, 1, 100, {}, {}, {}},
    Call{"Try_array, 256 KiB", "Try_array", append_bytes<256>, 1, 20, {}, {}, {}},
    Call{"Try_array, 64 KiB", "Try_array", append_bytes<64>, 1, 100, 1.30, 1.30, 0.50},
};

/** Calls one server, so many times and so many at once. */
class Caller
{
  public:
    Caller(sd_bus* bus, const Server& server, const Call& call) :
        client(bus), service(server.service), what(call), to_send(call.calls)
    {
    }

    void run()
    {
        for (int number = 0; number < what.in_flight; ++number)
        {
            send();
        }
        while (to_receive > 0)
        {
            const int result = sd_bus_process(client, nullptr);
            check(result, "sd_bus_process");
            if (result == 0)
            {
                check(sd_bus_wait(client, UINT64_MAX), "sd_bus_wait");
            }
        }
        check(failure, what.method);
    }

  private:
    void send()
    {
        if (to_send == 0)
        {
            return;
        }
        --to_send;
        sd_bus_message* created = nullptr;
        check(sd_bus_message_new_method_call(client, &created, service.c_str(),
                                             "/com/orvane/velmar/sample/gantrytest",
                                             "com.orvane.velmar.sample.gantrytest", what.method),
              "sd_bus_message_new_method_call");
        const Message message{created};
        what.append(created);
        check(sd_bus_call_async(client, nullptr, created, received, this, UINT64_MAX),
              "sd_bus_call_async");
        ++to_receive;
    }

    static int received(sd_bus_message* reply, void* caller, sd_bus_error* /*error*/)
    {
        auto& self = *static_cast<Caller*>(caller);
        --self.to_receive;
        self.failure = std::min(self.failure, -sd_bus_message_get_errno(reply));
        self.send();
        return 1;
    }

    sd_bus* client;
    const std::string& service;
    const Call& what;
    int to_send;
    int to_receive = 0;
    int failure = 0;
};

double cpu_of(sd_bus* client, const Server& server, const Call& call)
{
    const double before = server.process.cpu_seconds();
    Caller(client, server, call).run();
    return (server.process.cpu_seconds() - before) / call.calls;
}

enum : std::size_t
{
    our_dbus,
    raw_dbus,
    our_sd,
    raw_sd,
    sdbuscpp,
};
using Servers = std::array<Server, 5>;

void measure(sd_bus* client, const Servers& servers, const Call& call)
{
    constexpr int rounds = 21;
    std::array<std::vector<double>, std::tuple_size_v<Servers>> seconds;
    for (int round = -1; round < rounds; ++round)
    {
        for (std::size_t turn = 0; turn < servers.size(); ++turn)
        {
            const std::size_t index = round % 2 == 0 ? turn : servers.size() - 1 - turn;
            if (index == sdbuscpp && !call.in_sdbuscpp)
            {
                continue;
            }
            const double figure = cpu_of(client, servers[index], call);
            if (round >= 0) // the first is to warm up
            {
                seconds[index].push_back(figure);
            }
        }
    }
    const auto print = [&](const char* loop, const char* name, std::size_t reference,
                           std::size_t ours, std::optional<double> bar)
    {
        const std::string what = std::string{call.what} + loop;
        bench::print_ratio(what.c_str(), {"us", 1e6}, name, seconds[reference], seconds[ours], bar);
    };
    print(", dbus_loop", "raw", raw_dbus, our_dbus, call.dbus_bar);
    print(", sdloop", "raw", raw_sd, our_sd, call.sd_bar);
    if (call.in_sdbuscpp)
    {
        print(", sdloop", "sdbus-c++", sdbuscpp, our_sd, call.sdbuscpp_bar);
    }
}

Server start(const std::string& program, const char* loop, const char* service)
{
    std::vector<std::string> arguments{program};
    if (loop != nullptr)
    {
        arguments.emplace_back(loop);
    }
    arguments.emplace_back(service);
    return {service, bench::Process{arguments}};
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::span arguments(argv, static_cast<std::size_t>(argc));
        if (arguments.size() != 4)
        {
            throw std::runtime_error("usage: methods METHODS_GANTRY METHODS_RAW METHODS_SDBUSCPP");
        }
        const bench::PrivateBus bus;
        const Servers servers{
            start(arguments[1], "dbus", "com.orvane.velmar.bench.our_dbus"),
            start(arguments[2], "dbus", "com.orvane.velmar.bench.raw_dbus"),
            start(arguments[1], "sd", "com.orvane.velmar.bench.our_sd"),
            start(arguments[2], "sd", "com.orvane.velmar.bench.raw_sd"),
            start(arguments[3], nullptr, "com.orvane.velmar.bench.sdbuscpp"),
        };
        sd_bus* client = nullptr;
        check(sd_bus_open_system(&client), "sd_bus_open_system");
        for (const Call& call : calls)
        {
            measure(client, servers, call);
        }
        sd_bus_flush_close_unref(client);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "methods: %s\n", error.what());
        return 1;
    }
}
