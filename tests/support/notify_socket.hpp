// The service manager's end of sd_notify(3): a datagram socket in $NOTIFY_SOCKET that keeps what
// the process under test tells it.
#pragma once

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/check.hpp"
#include "support/temp_dir.hpp"

namespace support
{

class NotifySocket
{
  public:
    // Sets $NOTIFY_SOCKET for this process.
    NotifySocket()
    {
        const std::string path = dir_.path / "notify";
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const int bound = bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        check(bound < 0 ? -errno : 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~NotifySocket()
    {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    NotifySocket(NotifySocket&&) = delete;

    // All datagrams so far, such as "READY=1". sd_notify delivers before it returns.
    const std::vector<std::string>& received()
    {
        std::array<char, 4096> datagram{};
        ssize_t size = 0;
        while ((size = recv(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT)) >= 0)
        {
            received_.emplace_back(datagram.data(), static_cast<std::size_t>(size));
        }
        return received_;
    }

  private:
    std::vector<std::string> received_;
    TempDir dir_;
    const int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

} // namespace support
