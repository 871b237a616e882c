// A program as a process of its own: its standard output, and what it holds of memory and
// descriptors.
#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/check.hpp"

namespace support
{

// Runs as long as this object, and no longer than the thread that made it.
class Program
{
  public:
    // With C strings as its arguments. Is looked up in $PATH.
    template <class... Arguments>
    explicit Program(const char* name, Arguments... arguments)
    {
        std::array<int, 2> ends{};
        check(pipe2(ends.data(), O_CLOEXEC) < 0 ? -errno : 0, "pipe2");
        output_ = ends[0];
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0)
        {
            // Not to outlive a test that crashes; the second look is for a parent that was quicker.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent)
            {
                dup2(ends[1], STDOUT_FILENO);
                execlp(name, name, arguments..., nullptr);
                std::perror(name);
            }
            _exit(127);
        }
        close(ends[1]);
    }
    ~Program()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        close(output_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The next line of the output; what there is of it when the program is silent for half a minute
    // or gone.
    std::string line()
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
    // All that is there of the output, without waiting for more.
    std::string output()
    {
        std::string text;
        char next = 0;
        while (has_output(0) && read(output_, &next, 1) == 1)
        {
            text += next;
        }
        return text;
    }

    // The memory that it has to itself and wrote to, in bytes.
    [[nodiscard]] std::size_t private_dirty() const
    {
        std::ifstream rollup(proc() + "smaps_rollup");
        std::size_t kilobytes = 0;
        for (std::string word; word != "Private_Dirty:" && rollup >> word;)
        {
        }
        rollup >> kilobytes;
        return rollup ? kilobytes * 1024 : throw std::runtime_error("it is gone");
    }
    [[nodiscard]] std::size_t open_fds() const
    {
        const std::filesystem::directory_iterator fds(proc() + "fd");
        return static_cast<std::size_t>(std::distance(begin(fds), end(fds)));
    }
    [[nodiscard]] pid_t pid() const noexcept
    {
        return pid_;
    }

  private:
    [[nodiscard]] bool has_output(int timeout_ms) const
    {
        pollfd ready{.fd = output_, .events = POLLIN, .revents = 0};
        return poll(&ready, 1, timeout_ms) > 0;
    }
    [[nodiscard]] std::string proc() const
    {
        return "/proc/" + std::to_string(pid_) + '/';
    }

    pid_t pid_ = -1;
    int output_ = -1;
};

} // namespace support
