#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/client.hpp"
#include "support/private_bus.hpp"

namespace
{

using support::Client;
using support::PrivateBus;

std::filesystem::path socket_of(const PrivateBus& bus)
{
    return bus.address().substr(bus.address().find('/'));
}

TEST(PrivateBus, IsTheSystemBusOfThisProgramAlone)
{
    EXPECT_EQ(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), support::bus().address());
    Client first;
    first.request_name("com.example.Name");
    {
        const PrivateBus other;
        EXPECT_NE(other.address(), support::bus().address());
        Client second;
        EXPECT_FALSE(second.name_has_owner("com.example.Name"));
    }
    EXPECT_EQ(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), support::bus().address());
    Client third;
    EXPECT_EQ(third.name_owner("com.example.Name"), first.unique_name());
}

TEST(PrivateBus, LeavesNothingBehind)
{
    pid_t daemon = 0;
    std::filesystem::path directory;
    {
        const PrivateBus bus;
        daemon = bus.pid();
        directory = socket_of(bus).parent_path();
        EXPECT_TRUE(std::filesystem::exists(directory));
    }
    EXPECT_EQ(kill(daemon, 0), -1);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST(PrivateBus, ComesBackAtTheSameAddressAfterAKill)
{
    PrivateBus bus;
    Client before;
    bus.kill();
    EXPECT_EQ(bus.pid(), -1);
    EXPECT_THROW(before.turns(2), std::system_error);
    EXPECT_THROW(Client{}, std::system_error);
    bus.restart();
    Client after;
    EXPECT_TRUE(after.name_has_owner("org.freedesktop.DBus"));
}

// Ends without a destructor, as a crash would.
TEST(PrivateBus, DaemonDiesWithTheProgram)
{
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        const PrivateBus bus;
        const pid_t daemon = bus.pid();
        const ssize_t written = write(pipe_ends[1], &daemon, sizeof(daemon));
        std::filesystem::remove_all(socket_of(bus).parent_path());
        _exit(written == sizeof(daemon) ? 0 : 1);
    }
    close(pipe_ends[1]);
    pid_t daemon = 0;
    ASSERT_EQ(read(pipe_ends[0], &daemon, sizeof(daemon)), ssize_t{sizeof(daemon)});
    close(pipe_ends[0]);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    // Whoever adopts it may take a while to reap it; dead it is when it has no executable any more.
    const std::string executable = "/proc/" + std::to_string(daemon) + "/exe";
    const auto end = std::chrono::steady_clock::now() + support::deadline;
    std::error_code error;
    while (!std::filesystem::read_symlink(executable, error).empty() &&
           std::chrono::steady_clock::now() < end)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(std::filesystem::read_symlink(executable, error).empty());
}

} // namespace
