// A message bus of the test's own. It stands in for the system bus: same kind of daemon, a policy
// that allows everything, and DBUS_SYSTEM_BUS_ADDRESS pointing at it, so that whatever the code
// under test opens as "the system bus" is this one.
//
// test_main.cpp runs one for the whole program; support::bus() hands it out.
#pragma once

#include <memory>
#include <string>

#include <sys/types.h>

namespace support
{

class TempDir;

class PrivateBus
{
  public:
    // Starts the daemon, waits until it listens and sets DBUS_SYSTEM_BUS_ADDRESS. Call it on the
    // main thread before other threads start: the environment is not thread-safe, and the daemon
    // is killed when the thread that started it ends. Throws std::runtime_error when there is no
    // dbus-daemon or it does not come up.
    PrivateBus();
    // Ends the daemon and removes the directory.
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // Ends the daemon; every connection to it breaks, and new ones are refused.
    void kill() noexcept;
    // Starts a daemon at the same address again, ending the old one if it runs.
    void restart();

    [[nodiscard]] const std::string& address() const noexcept
    {
        return address_;
    }

    [[nodiscard]] pid_t pid() const noexcept
    {
        return pid_;
    }

  private:
    const std::unique_ptr<TempDir> dir_;
    std::string address_;
    pid_t pid_ = -1;
};

// The bus that test_main.cpp started. Throws std::logic_error in a program with another main.
PrivateBus& bus();

} // namespace support
