#include "support/private_bus.hpp"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support
{

namespace
{

constexpr const char* address_variable = "DBUS_SYSTEM_BUS_ADDRESS";

// The limits are the session bus's: a test may make more connections, names and matches than the
// system bus grants one user.
constexpr std::string_view policy = R"(
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)";

[[noreturn]] void throw_errno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

struct DaemonFiles
{
    std::string config;
    std::string log;
};

// Runs in the child of fork(): becomes the daemon, which reports its address on `report`.
[[noreturn]] void become_daemon(const DaemonFiles& files, int report, pid_t parent)
{
    // Not to outlive a test that crashes; the second look is for a parent that was quicker.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent)
    {
        const int log = open(files.log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        dup2(log, STDERR_FILENO);
        const int inherited = dup(report); // without O_CLOEXEC
        const std::string print_address = "--print-address=" + std::to_string(inherited);
        execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--nosyslog",
               print_address.c_str(), "--config-file", files.config.c_str(), nullptr);
        dprintf(STDERR_FILENO, "dbus-daemon: %s\n", std::strerror(errno));
    }
    _exit(127);
}

// Whether the daemon says its address, which it does once it listens.
bool wait_for_report(int report)
{
    constexpr int timeout_ms = 30000;
    pollfd poll_for{.fd = report, .events = POLLIN, .revents = 0};
    int ready = 0;
    do
    {
        ready = poll(&poll_for, 1, timeout_ms);
    } while (ready < 0 && errno == EINTR);
    std::array<char, 256> address{};
    return ready > 0 && read(report, address.data(), address.size()) > 0;
}

} // namespace

PrivateBus::PrivateBus() : address_("unix:path=" + (dir_.path() / "bus").string())
{
    std::ofstream config(dir_.path() / "bus.conf");
    config << "<busconfig>\n  <type>system</type>\n  <listen>" << address_ << "</listen>" << policy;
    config.close();
    if (!config)
    {
        throw std::runtime_error("no configuration of the private bus could be written");
    }
    start();
    if (const char* const previous = std::getenv(address_variable))
    {
        previous_address_ = previous;
    }
    setenv(address_variable, address_.c_str(), 1);
}

PrivateBus::~PrivateBus()
{
    kill();
    if (previous_address_)
    {
        setenv(address_variable, previous_address_->c_str(), 1);
    }
    else
    {
        unsetenv(address_variable);
    }
}

void PrivateBus::kill() noexcept
{
    if (pid_ > 0)
    {
        ::kill(pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR)
        {
        }
        pid_ = -1;
    }
}

void PrivateBus::restart()
{
    kill();
    start();
}

void PrivateBus::start()
{
    // A killed daemon leaves its socket behind, which would be in the next one's way.
    std::error_code ignored;
    std::filesystem::remove(dir_.path() / "bus", ignored);

    std::array<int, 2> report{};
    if (pipe2(report.data(), O_CLOEXEC) < 0)
    {
        throw_errno("pipe2");
    }
    const DaemonFiles files{dir_.path() / "bus.conf", dir_.path() / "log"};
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
    {
        become_daemon(files, report[1], parent);
    }
    close(report[1]);
    const bool listening = pid_ > 0 && wait_for_report(report[0]);
    close(report[0]);
    if (!listening)
    {
        kill();
        std::ostringstream log;
        log << std::ifstream(files.log).rdbuf();
        throw std::runtime_error("the private bus did not start\n" + log.str());
    }
}

} // namespace support
