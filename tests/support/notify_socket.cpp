#include "support/notify_socket.hpp"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace support
{

NotifySocket::NotifySocket()
{
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0)
    {
        const int error = errno;
        if (fd_ >= 0)
        {
            close(fd_);
        }
        throw std::system_error(error, std::generic_category(), path());
    }
    if (const char* const previous = std::getenv("NOTIFY_SOCKET"))
    {
        previous_ = previous;
    }
    setenv("NOTIFY_SOCKET", path().c_str(), 1);
}

NotifySocket::~NotifySocket()
{
    if (previous_)
    {
        setenv("NOTIFY_SOCKET", previous_->c_str(), 1);
    }
    else
    {
        unsetenv("NOTIFY_SOCKET");
    }
    close(fd_);
}

std::optional<std::string> NotifySocket::receive(std::chrono::milliseconds timeout)
{
    pollfd poll_for{.fd = fd_, .events = POLLIN, .revents = 0};
    if (poll(&poll_for, 1, static_cast<int>(timeout.count())) <= 0)
    {
        return std::nullopt;
    }
    std::array<char, 4096> datagram{};
    const ssize_t size = recv(fd_, datagram.data(), datagram.size(), MSG_DONTWAIT);
    if (size < 0)
    {
        return std::nullopt;
    }
    return std::string(datagram.data(), static_cast<std::size_t>(size));
}

std::vector<std::string> NotifySocket::received()
{
    std::vector<std::string> result;
    while (auto datagram = receive())
    {
        result.push_back(*std::move(datagram));
    }
    return result;
}

std::string NotifySocket::path() const
{
    return dir_.path() / "notify";
}

} // namespace support
