/*
 * What an object costs a host: to publish and to keep, beside raw sd-bus, to announce changes of
 * many at once, and to find and to free among few and among many.
 *
 *     objects GANTRY_HOST RAW_HOST
 */
#include "measure.hpp"

#include <gantry/gantry.h>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <gantry/context.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using bench::Process;

constexpr int published = 1000;

/** A program that is started as a host, and the arguments for its loop. */
struct Kind
{
    const std::string& program;
    std::vector<std::string> loop;

    [[nodiscard]] Process start(int count) const
    {
        std::vector<std::string> arguments{program, "com.orvane.velmar.bench",
                                           std::to_string(count)};
        arguments.insert(arguments.end(), loop.begin(), loop.end());
        return Process{arguments};
    }
};

/** Measures both kinds in turn and prints the ratio of ours to raw. */
void compare(const char* what, bench::Unit unit, double bar, int rounds, const Kind& raw,
             const Kind& ours, const std::function<double(const Kind& kind)>& measure)
{
    std::vector<double> of_raw;
    std::vector<double> of_ours;
    for (int round = 0; round < 2 * rounds; ++round)
    {
        const bool is_raw = (round + round / 2) % 2 == 0;
        (is_raw ? of_raw : of_ours).push_back(measure(is_raw ? raw : ours));
    }
    bench::print_ratio(what, unit, "raw", of_raw, of_ours, bar);
}

constexpr const char* port_interface = "com.orvane.velmar.system.NicPort";
constexpr int picked = 100;
constexpr std::array counts{100, 1000, 10000, 40000};

std::string path_of(int number)
{
    return "/com/orvane/velmar/system/NicPort/p" + std::to_string(number);
}

void publish(int number)
{
    GANTRY_instance* created = nullptr;
    GANTRY_instantiate__com_orvane_velmar_system_NicPort(nullptr, nullptr, path_of(number).c_str(),
                                                         nullptr);
    GANTRY_instance_get_created(nullptr, &created, nullptr);
    bench::check(created != nullptr ? 0 : -ENOMEM, "publishing an object");
}

GANTRY_instance* find(const std::string& path)
{
    GANTRY_instance* found = nullptr;
    GANTRY_instance_find(nullptr, port_interface, path.c_str(), &found);
    return found;
}

/** CPU seconds to find and to free an object. */
struct Among
{
    double find;
    double free;
};

/**
 * Finds and frees `picked` objects, spread evenly, however many there are, so that the processor's
 * caches serve all counts alike. The objects are published again afterwards.
 */
Among measure_among(int count)
{
    std::vector<int> numbers;
    std::vector<std::string> paths;
    for (int index = 0; index < picked; ++index)
    {
        numbers.push_back(index * (count / picked));
        paths.push_back(path_of(numbers.back()));
    }
    constexpr int rounds = 5;
    std::vector<double> finding;
    std::vector<double> freeing;
    for (int round = 0; round < rounds; ++round)
    {
        std::vector<GANTRY_instance*> found;
        finding.push_back(bench::cpu_seconds_of(
            [&] { std::ranges::transform(paths, std::back_inserter(found), find); }));
        if (std::ranges::find(found, nullptr) != found.end())
        {
            throw std::runtime_error("an object isn't found");
        }
        freeing.push_back(bench::cpu_seconds_of(
            [&]
            {
                for (GANTRY_instance* instance : found)
                {
                    GANTRY_instance_free(&instance);
                }
            }));
        std::ranges::for_each(numbers, publish);
    }
    return {bench::median(finding) / picked, bench::median(freeing) / picked};
}

void find_and_free()
{
    std::vector<Among> figures;
    int number = 0;
    for (const int count : counts)
    {
        for (; number < count; ++number)
        {
            publish(number);
        }
        figures.push_back(measure_among(count));
    }
    const auto print = [&](const char* what, double Among::*figure)
    {
        std::printf("%-39s", what);
        for (std::size_t index = 0; index < counts.size(); ++index)
        {
            std::printf(" %d: %.2f us ", counts[index], figures[index].*figure * 1e6);
        }
        const double ratio = figures.back().*figure / (figures.front().*figure);
        std::printf(" ratio %.2f  (bar 2: %s)\n", ratio, ratio <= 2 ? "met" : "MISSED");
    };
    print("find among", &Among::find);
    print("free among", &Among::free);
}

/** Changes all 60 properties of ports and announces them: one by one, held, or by sd-bus itself. */
class Changes
{
  public:
    explicit Changes(const bench::PrivateBus& its_bus) : daemon(its_bus)
    {
        for (int number = 0; number < ports; ++number)
        {
            publish(number);
            instances.push_back(find(path_of(number)));
        }
        const auto add = [](GANTRY_instance*, const char* member, const char* type, void* changes)
        {
            static_cast<Changes*>(changes)->members.push_back(member);
            static_cast<Changes*>(changes)->types += type;
        };
        GANTRY_property_list(instances[0], add, this);
        members.push_back(nullptr);
        GANTRY_context_new(&context);
        bus = GANTRY_get_sd_bus(context->bus);
    }
    Changes(const Changes&) = delete;
    Changes& operator=(const Changes&) = delete;
    ~Changes()
    {
        GANTRY_context_free(&context);
    }

    void compare()
    {
        std::vector<double> singly;
        std::vector<double> held;
        std::vector<double> held_with_bus;
        std::vector<double> raw;
        for (int round = 0; round < 21; ++round)
        {
            singly.push_back(measure([this] { set_all(false); }).with_bus);
            const auto add_raw = [&] { raw.push_back(measure([this] { send_raw(); }).host); };
            round % 2 == 0 ? add_raw() : void();
            const Cost ours = measure([this] { send_held(); });
            held.push_back(ours.host);
            held_with_bus.push_back(ours.with_bus);
            round % 2 != 0 ? add_raw() : void();
        }
        const bench::Unit unit{"ms", 1e3};
        bench::print_ratio("60 changes of 100 ports, host and bus", unit, "singly", singly,
                           held_with_bus, 0.10);
        bench::print_ratio("60 changes of 100 ports, host", unit, "raw", raw, held, 1.05);
    }

  private:
    static constexpr int ports = 100;

    void set(GANTRY_instance* port, bool skip)
    {
        for (std::size_t index = 0; index < types.size(); ++index)
        {
            const char* const member = members[index];
            switch (types[index])
            {
            case 'y':
                GANTRY_property_set_byte(port, member, value, skip, nullptr);
                break;
            case 'q':
                GANTRY_property_set_uint16(port, member, value, skip, nullptr);
                break;
            case 'u':
                GANTRY_property_set_uint32(port, member, value, skip, nullptr);
                break;
            case 't':
                GANTRY_property_set_uint64(port, member, value, skip, nullptr);
                break;
            default:
                GANTRY_property_set_string(port, member, std::to_string(value).c_str(), skip,
                                           nullptr);
            }
        }
    }

    struct Cost
    {
        double host;
        double with_bus;
    };

    /** CPU seconds until the bus has passed on what is sent. */
    template <class Work>
    Cost measure(const Work& work)
    {
        ++value;
        const double before = daemon.cpu_seconds();
        const auto work_and_wait = [&]
        {
            work();
            bench::check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/",
                                            "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr,
                                            ""),
                         "Ping");
        };
        const double host = bench::cpu_seconds_of(work_and_wait);
        return {host, host + daemon.cpu_seconds() - before};
    }

    void set_all(bool skip)
    {
        for (auto* port : instances)
        {
            set(port, skip);
        }
    }

    void send_held()
    {
        GANTRY_context_hold_changes(context);
        set_all(false);
        GANTRY_context_send_changes(context, nullptr);
    }

    /** In two passes, as send_held(): the memory of all ports exceeds a processor's nearest caches.
     */
    void send_raw()
    {
        set_all(true);
        for (int number = 0; number < ports; ++number)
        {
            bench::check(sd_bus_emit_properties_changed_strv(
                             bus, path_of(number).c_str(), port_interface,
                             const_cast<char**>(members.data())), // which it only reads
                         "sd_bus_emit_properties_changed_strv");
        }
    }

    const bench::PrivateBus& daemon;
    std::vector<GANTRY_instance*> instances;
    std::vector<const char*> members; // with a null behind them
    std::string types;                // a letter for each
    GANTRY_cpp_context* context = nullptr;
    sd_bus* bus = nullptr;
    unsigned char value = 0;
};

void measure_all(const Kind& ours, const Kind& raw)
{
    const bench::PrivateBus bus;
    compare("CPU to start with 1,000 objects", {"ms", 1e3}, 1.10, 11, raw, ours,
            [](const Kind& kind) { return kind.start(published).cpu_seconds(); });
    compare("private memory per object", {"B", 1}, 1.06, 3, raw, ours,
            [](const Kind& kind)
            {
                const double few = kind.start(1).private_dirty();
                return (kind.start(published + 1).private_dirty() - few) / published;
            });
    Changes(bus).compare();
    find_and_free();
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::span arguments(argv, static_cast<std::size_t>(argc));
        if (arguments.size() != 3)
        {
            throw std::runtime_error("usage: objects GANTRY_HOST RAW_HOST");
        }
        const std::string gantry_host = arguments[1];
        const std::string raw_host = arguments[2];
        const Kind ours{gantry_host, {"dbus"}};
        const Kind raw{raw_host, {}};
        measure_all(ours, raw);
        // The process ends without freeing the context.
        std::fflush(stdout);
        _exit(0);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "objects: %s\n", error.what());
        return 1;
    }
}
