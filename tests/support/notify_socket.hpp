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
        const std::string path = dir_.path() / "notify";
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const auto* const any = reinterpret_cast<const sockaddr*>(&address);
        check(bind(fd_, any, sizeof(address)) < 0 ? -errno : 0, "bind");
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~NotifySocket()
    {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    // All datagrams that have come in, such as "READY=1", without waiting. sd_notify delivers
    // before it returns.
    std::vector<std::string> received()
    {
        std::vector<std::string> result;
        std::array<char, 4096> datagram{};
        for (ssize_t size = 0;
             (size = recv(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT)) >= 0;)
        {
            result.emplace_back(datagram.data(), static_cast<std::size_t>(size));
        }
        return result;
    }

  private:
    TempDir dir_;
    const int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

} // namespace support
