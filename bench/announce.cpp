/*
 * What a refresh of 60 changed properties costs the host: 60 setters that announce each, or 60 that
 * don't and one announcement. One process does both, in turn, and flushes its connection each time;
 * its own CPU time counts.
 */
#include "measure.hpp"

#include "nic_port.h"

#include <gantry/context.hpp>
#include <gantry/gantry.h>

#include <array>
#include <cstdint>

namespace
{

// By a property's signature, for another value each time.
void set_y(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_byte(port, member, static_cast<unsigned char>(value), skip, nullptr);
}
void set_n(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_int16(port, member, static_cast<short>(value), skip, nullptr);
}
void set_q(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_uint16(port, member, static_cast<unsigned short>(value), skip, nullptr);
}
void set_u(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_uint32(port, member, static_cast<unsigned int>(value), skip, nullptr);
}
void set_t(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_uint64(port, member, value, skip, nullptr);
}
void set_d(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_double(port, member, static_cast<double>(value), skip, nullptr);
}
void set_s(GANTRY_instance* port, const char* member, unsigned long value, bool skip)
{
    GANTRY_property_set_string(port, member, value % 2 == 0 ? "22.31.6" : "22.31.7", skip, nullptr);
}

using Setter = void (*)(GANTRY_instance*, const char*, unsigned long, bool);

constexpr Setter setter_of(char signature)
{
    switch (signature)
    {
    case 'y':
        return set_y;
    case 'n':
        return set_n;
    case 'q':
        return set_q;
    case 'u':
        return set_u;
    case 't':
        return set_t;
    case 'd':
        return set_d;
    case 's':
        return set_s;
    default:
        return nullptr;
    }
}

struct Property
{
    const char* member;
    Setter set;
};

#define PROPERTY(member, signature, type) Property{#member, setter_of((signature)[0])},
constexpr std::array properties{NIC_PORT_PROPERTIES(PROPERTY)};

double cpu_seconds()
{
    timespec time{};
    bench::check(clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time) < 0 ? -errno : 0, "clock_gettime");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/** A host with one NicPort that refreshes it. */
class Host
{
  public:
    Host()
    {
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(nullptr, nullptr, nullptr, nullptr);
        GANTRY_instance_find(nullptr, "com.orvane.velmar.system.NicPort", nullptr, &port);
        GANTRY_context_new(&context);
        for (std::size_t index = 0; index < properties.size(); ++index)
        {
            names[index] = properties[index].member;
        }
        if (port == nullptr)
        {
            throw std::runtime_error("no object; the log tells why");
        }
    }
    ~Host()
    {
        GANTRY_context_free(&context);
    }
    Host(const Host&) = delete;
    Host(Host&&) = delete;
    Host& operator=(const Host&) = delete;
    Host& operator=(Host&&) = delete;

    /** The CPU time of one refresh, out of some. */
    double refresh(bool together)
    {
        constexpr int times = 50;
        const double before = cpu_seconds();
        for (int time = 0; time < times; ++time)
        {
            ++value;
            for (const Property& property : properties)
            {
                property.set(port, property.member, value, together);
            }
            if (together)
            {
                int error = 0;
                GANTRY_property_announce(port, names.data(), &error);
                bench::check(-error, "GANTRY_property_announce");
            }
            bench::check(sd_bus_flush(GANTRY_get_sd_bus(context->bus)), "sd_bus_flush");
        }
        return (cpu_seconds() - before) / times;
    }

  private:
    GANTRY_cpp_context* context = nullptr;
    GANTRY_instance* port = nullptr;
    std::array<const char*, properties.size() + 1> names{};
    unsigned long value = 0;
};

void measure()
{
    constexpr int rounds = 21;
    Host host;
    std::vector<double> singly;
    std::vector<double> together;
    for (int round = -1; round < rounds; ++round)
    {
        std::array<double, 2> seconds{};
        for (const bool turn : {round % 2 == 0, round % 2 != 0})
        {
            seconds[turn ? 1 : 0] = host.refresh(turn);
        }
        if (round >= 0) // the first is to warm up
        {
            singly.push_back(seconds[0]);
            together.push_back(seconds[1]);
        }
    }
    const std::string what = "refresh of " + std::to_string(properties.size()) + ", one signal";
    bench::print_ratio(what.c_str(), {"us", 1e6}, "singly", singly, together, 0.10);
}

} // namespace

int main()
{
    try
    {
        const bench::PrivateBus bus;
        measure();
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "announce: %s\n", error.what());
        return 1;
    }
}
