#include "support/private_bus.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/check.hpp"
#include "support/temp_dir.hpp"

namespace support
{

namespace
{

// The limits are the session bus's: a test may make more connections, names and matches than the
// system bus grants one user.
constexpr const char* policy = R"(
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

// Runs in the child of fork(): becomes the daemon, which reports its address on `report`.
[[noreturn]] void become_daemon(const std::string& directory, int report, pid_t parent)
{
    // Not to outlive a test that crashes; the second look is for a parent that was quicker.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent)
    {
        const int log = open((directory + "/log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(log, STDERR_FILENO);
        const int inherited = dup(report); // without O_CLOEXEC
        const std::string print_address = "--print-address=" + std::to_string(inherited);
        execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", "--nosyslog",
               print_address.c_str(), "--config-file", (directory + "/bus.conf").c_str(), nullptr);
        std::perror("dbus-daemon");
    }
    _exit(127);
}

// Whether the daemon says its address, which it does once it listens.
bool wait_for_report(int report)
{
    constexpr int timeout_ms = 30000;
    pollfd poll_for{.fd = report, .events = POLLIN, .revents = 0};
    std::array<char, 256> address{};
    return poll(&poll_for, 1, timeout_ms) > 0 && read(report, address.data(), address.size()) > 0;
}

} // namespace

PrivateBus::PrivateBus() :
    dir_(std::make_unique<TempDir>()), address_("unix:path=" + (dir_->path() / "bus").string())
{
    std::ofstream(dir_->path() / "bus.conf")
        << "<busconfig>\n  <type>system</type>\n  <listen>" << address_ << "</listen>" << policy;
    restart();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateBus::~PrivateBus()
{
    kill();
}

void PrivateBus::kill() noexcept
{
    if (pid_ > 0)
    {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

void PrivateBus::restart()
{
    kill();
    // A killed daemon leaves its socket behind, which would be in the next one's way.
    std::filesystem::remove(dir_->path() / "bus");

    std::array<int, 2> report{};
    check(pipe2(report.data(), O_CLOEXEC) < 0 ? -errno : 0, "pipe2");
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
    {
        become_daemon(dir_->path(), report[1], parent);
    }
    close(report[1]);
    const bool listening = pid_ > 0 && wait_for_report(report[0]);
    close(report[0]);
    if (!listening)
    {
        kill();
        std::ostringstream log;
        log << std::ifstream(dir_->path() / "log").rdbuf();
        throw std::runtime_error("the private bus did not start\n" + log.str());
    }
}

} // namespace support
