// Clients that call and don't read the replies, on a bus with the default limits of a system bus.
// They are of another user where that can be: dbus-broker bounds by user what it has queued. Each
// attack has a host of its own, whose memory is measured, and a client that reads: while the others
// are there, and once they have left.
//
//     unread          the attacks, and 256 calls in flight of a client that reads
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>

#include <gantry/gantry.h>

#include "support/client.hpp"
#include "support/program.hpp"
#include "support/temp_dir.hpp"

namespace
{

using Clock = std::chrono::steady_clock;

constexpr const char* port = "com.orvane.velmar.system.NicPort";
constexpr const char* module = "com.orvane.velmar.system.QSFPD";
constexpr const char* manager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* root = "/com/orvane/velmar";
constexpr const char* name = "com.example.Unread";

struct Attack
{
    const char* what;
    int ports;
    int connections;
    int calls;
    const char* path;
    const char* interface;
    const char* method;
    const char* argument;
    // Whether the bus itself may have enough of the host.
    bool may_stall;
};

constexpr Attack attacks[] = {
    {"16 ports, 250 connections of 128 GetManagedObjects", 16, 250, 128, root, manager,
     "GetManagedObjects", nullptr, false},
    {"300 ports, 200 connections of 120 GetManagedObjects", 300, 200, 120, root, manager,
     "GetManagedObjects", nullptr, false},
    {"200 connections of 120 GetAll of 64 KiB", 1, 200, 120, "/module", properties, "GetAll",
     module, true},
};

double seconds_since(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Serves for ever, and says so.
[[noreturn]] void serve(int ports)
{
    GANTRY_context_set_service(nullptr, name);
    GANTRY_context_manage(nullptr, root, nullptr);
    GANTRY_instance* instance = nullptr;
    for (int number = 0; number < ports; ++number)
    {
        const auto path = std::string(root) + "/p" + std::to_string(number);
        GANTRY_instantiate__com_orvane_velmar_system_NicPort(nullptr, nullptr, path.c_str(),
                                                             nullptr);
        GANTRY_instance_get_created(nullptr, &instance, nullptr);
        GANTRY_property_set_string(instance, "FQDD", "NIC.Integrated.1-1-1", true, nullptr);
    }
    GANTRY_instantiate__com_orvane_velmar_system_QSFPD(nullptr, nullptr, "/module", nullptr);
    GANTRY_instance_get_created(nullptr, &instance, nullptr);
    GANTRY_property_set_string(instance, "VendorName",
                               std::string(ports == 1 ? 65536 : 16, 'x').c_str(), true, nullptr);
    std::puts("ready");
    std::fflush(stdout);
    GANTRY_dbus_loop(nullptr);
    std::exit(1);
}

double mebibytes(pid_t process, const std::string& field)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;)
    {
        double kibibytes = 0;
        if (word == field + ':' && status >> kibibytes)
        {
            return kibibytes / 1024;
        }
    }
    return 0;
}

// A connection that reads no more once it is there.
class Silent
{
  public:
    explicit Silent(const Attack& attack)
    {
        sd_bus* opened = nullptr;
        const uid_t own = geteuid();
        seteuid(own == 0 ? 65534 : own);
        support::check(sd_bus_open_system(&opened));
        seteuid(own);
        bus.reset(opened);
        const char* unique = nullptr;
        sd_bus_get_unique_name(opened, &unique);
        // A bus may have enough of a user who doesn't read.
        for (int count = 0; count < attack.calls && sd_bus_is_open(opened) > 0; ++count)
        {
            sd_bus_message* made = nullptr;
            support::check(sd_bus_message_new_method_call(opened, &made, name, attack.path,
                                                          attack.interface, attack.method));
            const support::Message call(made);
            support::check(
                attack.argument == nullptr ? 0 : sd_bus_message_append(made, "s", attack.argument));
            std::uint64_t cookie = 0; // without one sd-bus asks for no reply
            sd_bus_send(opened, made, &cookie);
        }
        sd_bus_flush(opened); // it writes alone
    }

  private:
    std::unique_ptr<sd_bus, support::Release<sd_bus_close_unref>> bus;
};

// One Get by a client that reads. Gives what it took, or nothing when it isn't served in 5 s.
std::optional<double> get(sd_bus* bus, std::string& failure)
{
    constexpr std::uint64_t bar_us = 5'000'000;
    const auto begin = Clock::now();
    sd_bus_message* made = nullptr;
    support::check(sd_bus_message_new_method_call(
        bus, &made, name, (std::string(root) + "/p0").c_str(), properties, "Get"));
    const support::Message call(made);
    support::check(sd_bus_message_append(made, "ss", port, "FQDD"));
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call(bus, made, bar_us, &error, &reply);
    sd_bus_message_unref(reply);
    failure = error.name != nullptr ? error.name : "";
    sd_bus_error_free(&error);
    return result >= 0 ? std::optional(seconds_since(begin)) : std::nullopt;
}

const std::string self = std::filesystem::read_symlink("/proc/self/exe");
int failures = 0;

void verdict(const std::string& what, bool is_met)
{
    std::printf("  %s: %s\n", what.c_str(), is_met ? "met" : "MISSED");
    std::fflush(stdout);
    failures += is_met ? 0 : 1;
}

void attack(const Attack& attack)
{
    std::printf("%s\n", attack.what);
    support::Program host({self.c_str(), std::to_string(attack.ports).c_str()});
    if (host.line() != "ready")
    {
        verdict("a host", false);
        return;
    }
    support::Client good;
    std::string failure;
    get(good.bus(), failure);
    const double before = mebibytes(host.pid(), "VmRSS");
    double slowest = 0;
    int served = 0, refused = 0, unserved = 0;
    const auto look = [&]
    {
        const auto taken = get(good.bus(), failure);
        taken ? ++served : failure.ends_with("LimitsExceeded") ? ++refused : ++unserved;
        slowest = std::max(slowest, taken.value_or(0));
    };
    {
        const auto begin = Clock::now();
        std::vector<Silent> silent;
        silent.reserve(static_cast<std::size_t>(attack.connections));
        while (silent.size() < static_cast<std::size_t>(attack.connections))
        {
            silent.emplace_back(attack);
            silent.size() % 25 == 0 ? look() : void();
        }
        while (seconds_since(begin) < 10 && unserved < 2)
        {
            look();
        }
        std::printf("  memory %.1f -> peak %.1f MiB; %d served, the slowest in %.3f s; %d refused, "
                    "%d neither in 5 s\n",
                    before, mebibytes(host.pid(), "VmHWM"), served, slowest, refused, unserved);
        verdict("at most 64 MiB more", mebibytes(host.pid(), "VmHWM") - before <= 64);
        attack.may_stall ? void() : verdict("served meanwhile in 5 s", unserved == 0);
    }
    const auto left = Clock::now();
    std::optional<double> after;
    while (!(after = get(good.bus(), failure)) && seconds_since(left) < 5)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::printf("  afterwards in %.3f s, with %.1f MiB\n", seconds_since(left),
                mebibytes(host.pid(), "VmRSS"));
    verdict("served afterwards", after.has_value());
}

void in_flight()
{
    std::puts("256 GetAll in flight of a client that reads, on one processor");
    support::Program host({self.c_str(), "2"});
    host.line();
    support::Client good;
    std::vector<support::Client::Pending> pending;
    pending.reserve(256);
    for (int count = 0; count < 256; ++count)
    {
        pending.push_back(good.start({name, "/module"}, properties, "GetAll", "s", module));
    }
    int answers = 0;
    for (auto& each : pending)
    {
        answers += good.wait(std::move(each)).ok() ? 1 : 0;
    }
    verdict(std::to_string(answers) + " answers", answers == 256);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1)
    {
        serve(std::atoi(argv[1]));
    }
    // What a sanitizer keeps of freed memory isn't the host's.
    const char* const options = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS",
           (std::string(options != nullptr ? options : "") +
            ":quarantine_size_mb=1:thread_local_quarantine_size_kb=64")
               .c_str(),
           1);
    const support::TempDir dir;
    std::filesystem::permissions(dir.path, std::filesystem::perms(0755));
    const std::string socket = dir.path / "bus";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket).c_str(), 1);
    const std::string config = dir.path / "config";
    std::ofstream(config) << "<busconfig><type>system</type><listen>unix:path=" << socket
                          << "</listen><auth>EXTERNAL</auth><policy context='default'>"
                             "<allow user='*'/>"
                             "<allow own='*'/><allow send_destination='*'/>"
                             "<allow receive_sender='*'/></policy></busconfig>";
    const char* const chosen = std::getenv("TEST_BUS_DAEMON");
    const std::string address = "--address=unix:path=" + socket;
    const std::string with_config = "--config-file=" + config;
    std::vector<const char*> command{"dbus-daemon", with_config.c_str(), "--nofork", "--nopidfile",
                                     "--print-address"};
    if (chosen != nullptr)
    {
        command = {chosen, address.c_str()};
    }
    for (const Attack& each : attacks)
    {
        support::Program daemon(command);
        daemon.line();
        std::filesystem::permissions(socket, std::filesystem::perms::all); // for another user
        attack(each);
        std::filesystem::remove(socket);
    }
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    sched_setaffinity(0, sizeof first, &first); // of all that is started from here
    // A system bus lets a client wait for 128 replies.
    support::Program daemon({chosen != nullptr ? chosen : "dbus-daemon", "--session", "--nofork",
                             "--nopidfile", "--print-address", address.c_str()});
    daemon.line();
    in_flight();
    return failures == 0 ? 0 : 1;
}
