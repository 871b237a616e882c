/*
 * How hosts are compared. All of them run side by side on one private bus, and one client calls
 * them in turn. Only the CPU time of a host's process counts, so the costs of the client and of the
 * bus aren't part of the ratio. The order alternates, so a drift of the machine affects all alike.
 */
#pragma once

#include <sched.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace bench
{

/** Throws what an sd-bus or POSIX call reports as a negative errno. */
inline void check(int result, const char* call)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

/** CPU seconds that a clock has counted. */
inline double cpu_seconds(clockid_t clock)
{
    timespec time{};
    check(clock_gettime(clock, &time) < 0 ? -errno : 0, "clock_gettime");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/** CPU seconds that this process spends in `work`. */
template <class Work>
double cpu_seconds_of(const Work& work)
{
    const double before = cpu_seconds(CLOCK_PROCESS_CPUTIME_ID);
    work();
    return cpu_seconds(CLOCK_PROCESS_CPUTIME_ID) - before;
}

/** Keeps this process on the one processor that bus, client and hosts share. */
inline void stay_on_one_processor()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(0U, &set);
    sched_setaffinity(0, sizeof set, &set);
}

/** A child process that writes to its standard output when it is ready. It ends with this object.
 */
class Process
{
  public:
    explicit Process(std::vector<std::string> arguments)
    {
        std::array<int, 2> pipe_ends{};
        check(pipe(pipe_ends.data()) < 0 ? -errno : 0, "pipe");
        pid = fork();
        check(pid < 0 ? -errno : 0, "fork");
        if (pid == 0)
        {
            stay_on_one_processor();
            dup2(pipe_ends[1], STDOUT_FILENO);
            std::vector<char*> argv;
            argv.reserve(arguments.size() + 1);
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
        check(-clock_getcpuclockid(pid, &clock), "clock_getcpuclockid");
        return bench::cpu_seconds(clock);
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

/** A message bus that this process and its children use as the system bus. */
class PrivateBus
{
  public:
    PrivateBus()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", daemon.said.c_str(), 1);
        stay_on_one_processor();
    }

  private:
    Process daemon{{"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"}};
};

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/** What a figure is printed in. */
struct Unit
{
    const char* name;
    double scale;
};

/** Prints the median of a reference and of ours, measured in the same rounds, that of their ratio,
 *  and whether it meets its bar. */
inline void print_ratio(const char* what, Unit unit, const char* reference_name,
                        const std::vector<double>& reference, const std::vector<double>& ours,
                        double bar)
{
    std::vector<double> ratios;
    for (std::size_t round = 0; round < ours.size(); ++round)
    {
        ratios.push_back(ours[round] / reference[round]);
    }
    const double ratio = median(ratios);
    std::printf("%-39s %-9s %8.2f %-2s  ours %8.2f %-2s  ratio %.3f  (bar %.2f: %s)\n", what,
                reference_name, median(reference) * unit.scale, unit.name,
                median(ours) * unit.scale, unit.name, ratio, bar, ratio <= bar ? "met" : "MISSED");
    std::fflush(stdout);
}

} // namespace bench
