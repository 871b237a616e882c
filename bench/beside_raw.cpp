/*
 * Measures the library beside raw sd-bus: what a property, an object and a start cost.
 *
 *     beside_raw RAW_SERVER GANTRY_SERVER
 */
#include "measure.hpp"

#include <systemd/sd-bus.h>

#include <array>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using bench::check;
using bench::Process;
using bench::Unit;

constexpr Unit microseconds{"us", 1e6};

/** One of the two servers that are compared. */
struct Server
{
    std::string program;
    std::string service;
};

/** An object that both serve, and a property of its. */
struct Target
{
    const char* interface;
    const char* path;
    const char* property;
    const char* count;
};

constexpr std::array targets{
    Target{"com.orvane.velmar.system.NicPort", "/com/orvane/velmar/system/NicPort/p0",
           "ReceiveTotalBytes", "60"},
    Target{"com.orvane.velmar.system.QSFPD", "/com/orvane/velmar/system/QSFPD",
           "RX8InputPowerValue", "93"},
};

void get(sd_bus* client, const char* service, const Target& target)
{
    sd_bus_message* reply = nullptr;
    check(sd_bus_call_method(client, service, target.path, "org.freedesktop.DBus.Properties", "Get",
                             nullptr, &reply, "ss", target.interface, target.property),
          "Get");
    sd_bus_message_unref(reply);
}

void get_all(sd_bus* client, const char* service, const Target& target)
{
    sd_bus_message* reply = nullptr;
    check(sd_bus_call_method(client, service, target.path, "org.freedesktop.DBus.Properties",
                             "GetAll", nullptr, &reply, "s", target.interface),
          "GetAll");
    sd_bus_message_unref(reply);
}

/** Measures both in turn, `rounds` times; `measure` gives raw's figure and ours. */
void compare(const char* what, Unit unit, double bar, int rounds,
             const std::function<std::array<double, 2>(bool raw_first)>& measure)
{
    std::vector<double> raw;
    std::vector<double> ours;
    for (int round = 0; round < rounds; ++round)
    {
        const auto figures = measure(round % 2 == 0);
        raw.push_back(figures[0]);
        ours.push_back(figures[1]);
    }
    bench::print_ratio(what, unit, "raw", raw, ours, bar);
}

double cpu_of_calls(const Process& server, int calls, const std::function<void()>& call)
{
    const double before = server.cpu_seconds();
    for (int number = 0; number < calls; ++number)
    {
        call();
    }
    return (server.cpu_seconds() - before) / calls;
}

/** The CPU time of a call in each of both, for each call, loop and target. */
struct CallFigures
{
    const char* call;
    const char* loop;
    double bar;
    const Target& target;
    void (*make)(sd_bus* client, const char* service, const Target& target);
    std::vector<double> raw{};
    std::vector<double> ours{};
};

/**
 * Where a process's code and memory come to lie makes a call some per cent dearer or cheaper, so
 * the servers are started several times. Raw runs sd_event_loop.
 */
void compare_calls(sd_bus* client, const Server& raw, const Server& ours)
{
    constexpr int launches = 7;
    constexpr int rounds = 3;
    constexpr int calls = 500;
    std::vector<CallFigures> all;
    for (const Target& target : targets)
    {
        all.push_back({"Get", "dbus_loop", 1.15, target, get});
        all.push_back({"GetAll", "dbus_loop", 1.15, target, get_all});
        all.push_back({"Get", "sdloop", 1.02, target, get});
        all.push_back({"GetAll", "sdloop", 1.05, target, get_all});
    }
    const std::string sdloop_service = ours.service + ".sdloop";
    for (int launch = 0; launch < launches; ++launch)
    {
        const Process raw_process{{raw.program, "1"}};
        const Process under_dbus_loop{{ours.program, "1"}};
        const Process under_sdloop{{ours.program, "1", sdloop_service}};
        for (CallFigures& figures : all)
        {
            const bool is_sdloop = figures.loop == std::string("sdloop");
            const auto measure = [&](bool raw_turn)
            {
                const auto& service =
                    raw_turn ? raw.service : (is_sdloop ? sdloop_service : ours.service);
                const auto& process =
                    raw_turn ? raw_process : (is_sdloop ? under_sdloop : under_dbus_loop);
                const auto call = [&] { figures.make(client, service.c_str(), figures.target); };
                (raw_turn ? figures.raw : figures.ours)
                    .push_back(cpu_of_calls(process, calls, call));
            };
            for (int round = 0; round < rounds; ++round)
            {
                measure(round % 2 == 0);
                measure(round % 2 != 0);
            }
        }
    }
    for (const CallFigures& figures : all)
    {
        const std::string name = std::string(figures.call) + ", " + figures.target.count +
                                 " properties, " + figures.loop;
        bench::print_ratio(name.c_str(), microseconds, "raw", figures.raw, figures.ours,
                           figures.bar);
    }
}

void compare_servers(const Server& raw, const Server& ours)
{
    sd_bus* client = nullptr;
    check(sd_bus_open_system(&client), "sd_bus_open_system");

    compare_calls(client, raw, ours);

    constexpr int objects = 1000;
    compare(
        "CPU to start with 1,000 objects", {"ms", 1e3}, 1.10, 11,
        [&](bool raw_first)
        {
            std::array<double, 2> seconds{};
            for (const bool raw_turn : {raw_first, !raw_first})
            {
                const Process process{{(raw_turn ? raw : ours).program, std::to_string(objects)}};
                seconds[raw_turn ? 0 : 1] = process.cpu_seconds();
            }
            return seconds;
        });
    compare("private memory per object", {"B", 1}, 1.25, 3,
            [&](bool raw_first)
            {
                std::array<double, 2> bytes{};
                for (const bool raw_turn : {raw_first, !raw_first})
                {
                    const auto& program = (raw_turn ? raw : ours).program;
                    const Process few{{program, "1"}};
                    const Process many{{program, std::to_string(objects + 1)}};
                    bytes[raw_turn ? 0 : 1] =
                        (many.private_dirty() - few.private_dirty()) / objects;
                }
                return bytes;
            });
    sd_bus_flush_close_unref(client);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        if (argc != 3)
        {
            throw std::runtime_error("usage: beside_raw RAW_SERVER GANTRY_SERVER");
        }
        const bench::PrivateBus bus;
        compare_servers({argv[1], "com.orvane.velmar.bench.raw"},
                        {argv[2], "com.orvane.velmar.bench.gantry"});
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "beside_raw: %s\n", error.what());
        return 1;
    }
}
