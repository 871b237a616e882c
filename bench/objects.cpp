/*
 * What an object costs a host: its memory and the changes of many at once, beside raw sd-bus, and
 * to find and to free it among few and among many.
 *
 *     objects GANTRY_HOST RAW_HOST
 */
#include "measure.hpp"

#include <gantry/gantry.h>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <gantry/context.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

/** Prints the memory that each object takes in a host on the library and in the raw one. */
void compare_memory(const std::string& gantry_host, const std::string& raw_host)
{
    constexpr int published = 1000;
    const auto per_object = [](const auto& start)
    {
        const double few = start("1").private_dirty();
        return (start(std::to_string(published + 1)).private_dirty() - few) / published;
    };
    constexpr const char* service = "com.orvane.velmar.bench";
    std::vector<double> raw;
    std::vector<double> ours;
    for (int round = 0; round < 3; ++round)
    {
        raw.push_back(per_object(
            [&](const std::string& count) {
                return bench::Process{{raw_host, service, count}};
            }));
        ours.push_back(per_object(
            [&](const std::string& count) {
                return bench::Process{{gantry_host, service, count, "dbus"}};
            }));
    }
    bench::print_ratio("private memory per object", {"B", 1}, "raw", raw, ours, 1.06);
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

/** Changes all 60 properties of ports and announces them: held, or by sd-bus itself. */
class Changes
{
  public:
    Changes()
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
        std::vector<double> held;
        std::vector<double> raw;
        for (int round = 0; round < 21; ++round)
        {
            for (const int turn : {0, 1})
            {
                if ((round + turn) % 2 == 0)
                {
                    raw.push_back(measure([this] { send_raw(); }));
                }
                else
                {
                    held.push_back(measure([this] { send_held(); }));
                }
            }
        }
        bench::print_ratio("60 changes of 100 ports", {"ms", 1e3}, "raw", raw, held, 1.05);
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

    /** CPU seconds of this process until the bus has passed on what is sent. */
    template <class Work>
    double measure(const Work& work)
    {
        ++value;
        return bench::cpu_seconds_of(
            [&]
            {
                work();
                bench::check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/",
                                                "org.freedesktop.DBus.Peer", "Ping", nullptr,
                                                nullptr, ""),
                             "Ping");
            });
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

    std::vector<GANTRY_instance*> instances;
    std::vector<const char*> members; // with a null behind them
    std::string types;                // a letter for each
    GANTRY_cpp_context* context = nullptr;
    sd_bus* bus = nullptr;
    unsigned char value = 0;
};

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
        {
            const bench::PrivateBus bus;
            compare_memory(arguments[1], arguments[2]);
            Changes().compare();
            find_and_free();
        }
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
