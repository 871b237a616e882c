// The service manager's end of sd_notify(3): a datagram socket in $NOTIFY_SOCKET that keeps what
// the process under test tells it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/temp_dir.hpp"

namespace support
{

class NotifySocket
{
  public:
    // Binds the socket and sets $NOTIFY_SOCKET for this process; throws std::system_error.
    NotifySocket();
    // Restores $NOTIFY_SOCKET.
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket(NotifySocket&&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    NotifySocket& operator=(NotifySocket&&) = delete;

    // The next datagram, such as "READY=1"; nothing when none comes in time.
    std::optional<std::string> receive(std::chrono::milliseconds timeout = {});
    // All datagrams that have come in, without waiting. sd_notify delivers before it returns.
    std::vector<std::string> received();

    [[nodiscard]] std::string path() const;

  private:
    TempDir dir_;
    int fd_ = -1;
    std::optional<std::string> previous_;
};

} // namespace support
