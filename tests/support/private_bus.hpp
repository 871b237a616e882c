// A message bus of the test's own, with a policy that allows everything. It stands in for the
// system bus: DBUS_SYSTEM_BUS_ADDRESS points at it, so that whatever the code under test opens as
// "the system bus" is this one.
//
// test_main.cpp runs one for the whole program; support::bus() hands it out.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/program.hpp"
#include "support/temp_dir.hpp"

namespace support
{

class PrivateBus
{
  public:
    // Starts the daemon. Call it on the main thread before other threads start: the environment is
    // not thread-safe, and the daemon is killed when the thread that started it ends. The session
    // bus has no limit that a test comes near.
    explicit PrivateBus(std::string config = "--session") : config_(std::move(config))
    {
        // Other users may connect.
        std::filesystem::permissions(dir_.path, std::filesystem::perms(0755));
        setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket_).c_str(), 1);
        restart();
    }

    // Ends the daemon; every connection to it breaks, and new ones are refused.
    void kill() noexcept
    {
        daemon_.reset();
    }
    // Starts a daemon at the same address again, ending the old one if it runs, and waits until it
    // listens.
    void restart()
    {
        kill();
        // A killed daemon leaves its socket behind, which would be in the next one's way.
        std::filesystem::remove(socket_);
        const std::string address = "--address=unix:path=" + socket_;
        const char* const chosen = std::getenv("TEST_BUS_DAEMON");
        daemon_.emplace(std::vector{chosen != nullptr ? chosen : "dbus-daemon", config_.c_str(),
                                    "--print-address", address.c_str()});
        if (daemon_->line().empty())
        {
            throw std::runtime_error("the private bus did not start");
        }
        std::filesystem::permissions(socket_, std::filesystem::perms::all);
    }

    [[nodiscard]] pid_t pid() const
    {
        return daemon_.value().pid();
    }

  private:
    TempDir dir_;
    const std::string config_;
    const std::string socket_ = dir_.path / "bus";
    std::optional<Program> daemon_;
};

// The bus of test_main.cpp.
PrivateBus& bus();

} // namespace support
