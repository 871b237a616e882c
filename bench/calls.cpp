/*
 * What a call costs a host on the library, beside raw sd-bus and sdbus-c++: reading properties, and
 * a method that returns its argument. In all hosts, sd-bus asks the bus who the caller is before it
 * runs the method.
 *
 *     calls GANTRY_HOST RAW_HOST SDBUSCPP_HOST
 */
#include "measure.hpp"

#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using bench::check;

template <class... Values>
void append(sd_bus_message* message, const char* signature, Values... values)
{
    check(sd_bus_message_append(message, signature, values...), "sd_bus_message_append");
}

struct Object
{
    const char* path;
    const char* interface;
};

constexpr const char* port_interface = "com.orvane.velmar.system.NicPort";
constexpr Object port{"/com/orvane/velmar/system/NicPort/p0", "org.freedesktop.DBus.Properties"};
constexpr Object sample{"/com/orvane/velmar/sample/gantrytest",
                        "com.orvane.velmar.sample.gantrytest"};

/** A call that is measured, and the highest ratio of ours to each reference. */
struct Call
{
    const char* what;
    const Object& object;
    const char* method;
    void (*append)(sd_bus_message* message);
    int calls; // per round
    double dbus_loop_bar;
    double sdloop_bar;
    double sdbuscpp_bar = 0; // 0 for what that host doesn't serve
};

constexpr std::array calls{
    Call{"Get, 60 properties", port, "Get",
         [](auto* call) { append(call, "ss", port_interface, "ReceiveTotalBytes"); }, 500, 1.15,
         1.02},
    Call{"GetAll, 60 properties", port, "GetAll",
         [](auto* call) { append(call, "s", port_interface); }, 500, 1.15, 1.05},
    Call{"Try_int32", sample, "Try_int32", [](auto* call) { append(call, "i", 42); }, 500, 1.15,
         1.10, 1.05},
};

/** Makes the calls of one round to one host. */
void make_calls(sd_bus* client, const std::string& service, const Call& call)
{
    for (int number = 0; number < call.calls; ++number)
    {
        sd_bus_message* created = nullptr;
        check(sd_bus_message_new_method_call(client, &created, service.c_str(), call.object.path,
                                             call.object.interface, call.method),
              "sd_bus_message_new_method_call");
        const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> message{
            created, sd_bus_message_unref};
        call.append(created);
        check(sd_bus_call(client, created, UINT64_MAX, nullptr, nullptr), call.method);
    }
}

/** A host, and the name it has on the bus. */
struct Host
{
    std::string service;
    bench::Process process;
};

enum : std::size_t
{
    our_dbus_loop,
    our_sdloop,
    raw,
    sdbuscpp,
    host_count,
};
using Hosts = std::array<Host, host_count>;
/** For each host, the CPU seconds of one call, one figure per round. */
using Seconds = std::array<std::vector<double>, host_count>;

void measure(sd_bus* client, const Hosts& hosts, const Call& call, int round, Seconds& seconds)
{
    for (std::size_t turn = 0; turn < hosts.size(); ++turn)
    {
        const std::size_t index = round % 2 == 0 ? turn : hosts.size() - 1 - turn;
        if (index != sdbuscpp || call.sdbuscpp_bar > 0)
        {
            const double before = hosts[index].process.cpu_seconds();
            make_calls(client, hosts[index].service, call);
            const double spent = hosts[index].process.cpu_seconds() - before;
            seconds[index].push_back(spent / call.calls);
        }
    }
}

void print(const Call& call, const Seconds& seconds)
{
    const auto row = [&](const char* loop, const char* name, auto reference, auto ours, double bar)
    {
        const std::string what = std::string{call.what} + loop;
        bench::print_ratio(what.c_str(), {"us", 1e6}, name, seconds[reference], seconds[ours], bar);
    };
    row(", dbus_loop", "raw", raw, our_dbus_loop, call.dbus_loop_bar);
    row(", sdloop", "raw", raw, our_sdloop, call.sdloop_bar);
    if (call.sdbuscpp_bar > 0)
    {
        row(", sdloop", "sdbus-c++", sdbuscpp, our_sdloop, call.sdbuscpp_bar);
    }
}

/**
 * The addresses of a process's code and memory change the cost of a call by some per cent, so the
 * hosts are started several times.
 */
void compare(const std::string& gantry_host, const std::string& raw_host,
             const std::string& sdbuscpp_host)
{
    constexpr int launches = 7;
    constexpr int rounds = 3;
    std::array<Seconds, calls.size()> seconds;
    sd_bus* client = nullptr;
    check(sd_bus_open_system(&client), "sd_bus_open_system");
    for (int launch = 0; launch < launches; ++launch)
    {
        const auto start = [](const std::string& program, const char* name, auto... arguments) {
            return Host{name, bench::Process{{program, name, arguments...}}};
        };
        const Hosts hosts{
            start(gantry_host, "com.orvane.velmar.bench.dbus_loop", "1", "dbus"),
            start(gantry_host, "com.orvane.velmar.bench.sdloop", "1", "sd"),
            start(raw_host, "com.orvane.velmar.bench.raw", "1"),
            start(sdbuscpp_host, "com.orvane.velmar.bench.sdbuscpp"),
        };
        for (std::size_t index = 0; index < calls.size(); ++index)
        {
            Seconds warming_up;
            measure(client, hosts, calls[index], 0, warming_up);
            for (int round = 0; round < rounds; ++round)
            {
                measure(client, hosts, calls[index], round, seconds[index]);
            }
        }
    }
    sd_bus_flush_close_unref(client);
    for (std::size_t index = 0; index < calls.size(); ++index)
    {
        print(calls[index], seconds[index]);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::span arguments(argv, static_cast<std::size_t>(argc));
        if (arguments.size() != 4)
        {
            throw std::runtime_error("usage: calls GANTRY_HOST RAW_HOST SDBUSCPP_HOST");
        }
        const bench::PrivateBus bus;
        compare(arguments[1], arguments[2], arguments[3]);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "calls: %s\n", error.what());
        return 1;
    }
}
