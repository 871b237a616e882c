// A program as a process of its own: its standard output, how it ends and what memory it takes.
#pragma once

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/check.hpp"

namespace support
{

// What this process has open, the descriptor to what it stands for, such as "socket:[4711]". The
// descriptor that reads the directory is among them, the same each time if none leaked.
inline std::map<std::string, std::string> open_fds()
{
    std::map<std::string, std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code ignored;
        result[entry.path()] = std::filesystem::read_symlink(entry.path(), ignored);
    }
    return result;
}

// Runs as long as this object, and no longer than the thread that made it.
class Program
{
  public:
    // Is looked up in $PATH. `prepare` is called in the new process first.
    explicit Program(
        std::vector<const char*> command, const std::function<void()>& prepare = [] {})
    {
        // What was built may need Meson's wrapper to run here; what $PATH has is this machine's.
        if (*command[0] == '/')
        {
            command.insert(command.begin(), {"sh", "-c", R"(exec $MESON_EXE_WRAPPER "$0" "$@")"});
        }
        command.push_back(nullptr);
        std::array<int, 2> ends{};
        check(pipe2(ends.data(), O_CLOEXEC) < 0 ? -errno : 0);
        output_ = ends[0];
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0)
        {
            setpgid(0, 0);
            // Not to outlive a test that crashes; the second look is for a parent that was quicker.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent)
            {
                dup2(ends[1], STDOUT_FILENO);
                prepare();
                execvp(command[0], const_cast<char**>(command.data()));
                std::perror(command[0]);
            }
            _exit(127);
        }
        setpgid(pid_, pid_); // whoever comes first
        close(ends[1]);
    }
    ~Program()
    {
        stop(SIGKILL);
        close(output_);
    }
    Program(Program&&) = delete;

    // Gives its exit code, or minus the signal that ended it; 0 when it was ended before.
    int stop(int signal = SIGTERM)
    {
        int status = 0;
        if (const pid_t pid = std::exchange(pid_, 0); pid > 0)
        {
            kill(-pid, signal); // and what it started
            waitpid(pid, &status, 0);
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    // The next line of the output; what there is of it when the program is silent for half a minute
    // or gone.
    std::string line()
    {
        pollfd ready{.fd = output_, .events = POLLIN, .revents = 0};
        constexpr int timeout_ms = 30'000;
        std::string text;
        for (char next = 0;
             poll(&ready, 1, timeout_ms) > 0 && read(output_, &next, 1) == 1 && next != '\n';)
        {
            text += next;
        }
        return text;
    }

    // The most memory that it has had.
    [[nodiscard]] long peak_kib() const
    {
        const std::string field = "VmHWM:";
        std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
        const std::string status(std::istreambuf_iterator<char>(file), {});
        return std::stol(status.substr(status.find(field) + field.size()));
    }
    [[nodiscard]] pid_t pid() const noexcept
    {
        return pid_;
    }

  private:
    pid_t pid_ = 0; // 0 when it was ended
    int output_ = -1;
};

} // namespace support
