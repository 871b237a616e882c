#include "support/program.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support
{

namespace
{

std::filesystem::path proc(pid_t pid, const char* file)
{
    return std::filesystem::path("/proc") / std::to_string(pid) / file;
}

} // namespace

Program::Program(const char* path)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) < 0)
    {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    output_ = ends[0];
    pid_ = fork();
    if (pid_ == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execl(path, path, nullptr);
        _exit(127);
    }
    close(ends[1]);
}

Program::~Program()
{
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(output_);
}

std::string Program::line()
{
    constexpr int timeout_ms = 30'000;
    std::string text;
    char next = 0;
    while (has_output(timeout_ms) && read(output_, &next, 1) == 1 && next != '\n')
    {
        text += next;
    }
    return text;
}

std::string Program::output()
{
    std::string text;
    std::array<char, 65536> part{};
    while (has_output(0))
    {
        const ssize_t size = read(output_, part.data(), part.size());
        if (size <= 0)
        {
            break;
        }
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
}

std::size_t Program::private_dirty() const
{
    std::ifstream rollup(proc(pid_, "smaps_rollup"));
    std::string word;
    std::size_t kilobytes = 0;
    while (rollup >> word)
    {
        if (word == "Private_Dirty:" && rollup >> kilobytes)
        {
            return kilobytes * 1024;
        }
    }
    throw std::runtime_error("no Private_Dirty of process " + std::to_string(pid_));
}

std::size_t Program::open_fds() const
{
    const std::filesystem::directory_iterator fds(proc(pid_, "fd"));
    return static_cast<std::size_t>(std::distance(begin(fds), end(fds)));
}

bool Program::has_output(int timeout_ms) const
{
    pollfd ready{.fd = output_, .events = POLLIN, .revents = 0};
    return poll(&ready, 1, timeout_ms) > 0;
}

} // namespace support
