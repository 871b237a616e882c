/*
 * Measures the library beside raw sd-bus: both servers on one private bus, asked by this one
 * client, in turn. What counts is the CPU time that a server's process spends, so the client's and
 * the bus's own costs don't blur the ratio; the order alternates, so a drift of the machine hits
 * both.
 *
 *     beside_raw RAW_SERVER GANTRY_SERVER
 */
#include <sched.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace
{

void check(int result, const char* call)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

/** Keeps the process on one processor, if there are two. */
void stay_on(unsigned int processor)
{
    if (sysconf(_SC_NPROCESSORS_ONLN) > 1)
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(processor, &set);
        sched_setaffinity(0, sizeof set, &set);
    }
}

/**
 * A child process, whose standard output says when it is ready. All servers share a processor, on
 * which client and bus are not: what else the machine does meets both alike.
 */
class Process
{
  public:
    explicit Process(std::vector<std::string> arguments, unsigned int processor = 0)
    {
        std::array<int, 2> pipe_ends{};
        check(pipe(pipe_ends.data()) < 0 ? -errno : 0, "pipe");
        pid = fork();
        check(pid < 0 ? -errno : 0, "fork");
        if (pid == 0)
        {
            dup2(pipe_ends[1], STDOUT_FILENO);
            stay_on(processor);
            std::vector<char*> argv;
            for (auto& argument : arguments)
            {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        close(pipe_ends[1]);
        std::array<char, 256> line{};
        const auto length = ::read(pipe_ends[0], line.data(), line.size() - 1);
        close(pipe_ends[0]);
        if (length <= 0)
        {
            throw std::runtime_error(arguments[0] + " did not start");
        }
        said = line.data();
        said.erase(said.find_last_not_of('\n') + 1);
    }
    ~Process()
    {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process(Process&&) = delete;
    Process& operator=(const Process&) = delete;
    Process& operator=(Process&&) = delete;

    [[nodiscard]] double cpu_seconds() const
    {
        clockid_t clock{};
        timespec time{};
        check(-clock_getcpuclockid(pid, &clock), "clock_getcpuclockid");
        check(clock_gettime(clock, &time) < 0 ? -errno : 0, "clock_gettime");
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    /** Memory that the process has to itself and wrote to, in bytes. */
    [[nodiscard]] double private_dirty() const
    {
        std::ifstream rollup{"/proc/" + std::to_string(pid) + "/smaps_rollup"};
        std::string word;
        double kilobytes = 0;
        while (rollup >> word)
        {
            if (word == "Private_Dirty:" && rollup >> kilobytes)
            {
                return kilobytes * 1024;
            }
        }
        throw std::runtime_error("no Private_Dirty in smaps_rollup");
    }

    std::string said;

  private:
    pid_t pid = -1;
};

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
    const char* get_all;
};

constexpr std::array targets{
    Target{"com.orvane.velmar.system.NicPort", "/com/orvane/velmar/system/NicPort/p0",
           "ReceiveTotalBytes", "CPU per GetAll (60 properties)"},
    Target{"com.orvane.velmar.system.QSFPD", "/com/orvane/velmar/system/QSFPD",
           "RX8InputPowerValue", "CPU per GetAll (93 properties)"},
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

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/** Measures both in turn, `rounds` times, and prints the median of each and their ratio. */
void print_ratio(const char* what, const char* unit, double scale, double bar, int rounds,
                 const std::function<std::array<double, 2>(bool raw_first)>& measure)
{
    std::vector<double> raw;
    std::vector<double> ours;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round)
    {
        const auto [first, second] = measure(round % 2 == 0);
        raw.push_back(first * scale);
        ours.push_back(second * scale);
        ratios.push_back(second / first);
    }
    const double ratio = median(ratios);
    std::printf("%-34s raw %9.2f %-2s  ours %9.2f %-2s  ratio %.3f  (bar %.2f: %s)\n", what,
                median(raw), unit, median(ours), unit, ratio, bar, ratio <= bar ? "met" : "MISSED");
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

void compare(const Server& raw, const Server& ours)
{
    sd_bus* client = nullptr;
    check(sd_bus_open_system(&client), "sd_bus_open_system");

    {
        const Process raw_process{{raw.program, "1"}};
        const Process our_process{{ours.program, "1"}};
        const auto both = [&](int calls, void (*call)(sd_bus*, const char*, const Target&),
                              const Target& target, bool raw_first)
        {
            std::array<double, 2> seconds{};
            for (const bool raw_turn : {raw_first, !raw_first})
            {
                const auto& service = raw_turn ? raw.service : ours.service;
                seconds[raw_turn ? 0 : 1] =
                    cpu_of_calls(raw_turn ? raw_process : our_process, calls,
                                 [&] { call(client, service.c_str(), target); });
            }
            return seconds;
        };
        for (const Target& target : targets)
        {
            both(500, get, target, true);
            both(500, get_all, target, true);
            print_ratio("CPU per Get", "us", 1e6, 1.10, 21,
                        [&](bool raw_first) { return both(1000, get, target, raw_first); });
            print_ratio(target.get_all, "us", 1e6, 1.10, 21,
                        [&](bool raw_first) { return both(500, get_all, target, raw_first); });
        }
    }

    constexpr int objects = 1000;
    print_ratio(
        "CPU to start with 1,000 objects", "ms", 1e3, 1.10, 11,
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
    print_ratio("private memory per object", "B", 1, 1.25, 3,
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
        const Process bus{
            {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}};
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.said.c_str(), 1);
        compare({argv[1], "com.orvane.velmar.bench.raw"},
                {argv[2], "com.orvane.velmar.bench.gantry"});
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "beside_raw: %s\n", error.what());
        return 1;
    }
}
