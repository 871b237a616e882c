// A program of the tree as a process of its own: its standard output, and what it holds of memory
// and descriptors.
#pragma once

#include <cstddef>
#include <string>

#include <sys/types.h>

namespace support
{

// Runs as long as this object.
class Program
{
  public:
    explicit Program(const char* path);
    ~Program();
    Program(const Program&) = delete;
    Program(Program&&) = delete;
    Program& operator=(const Program&) = delete;
    Program& operator=(Program&&) = delete;

    // The next line of the output; what there is of it when the program is silent for half a minute
    // or gone.
    std::string line();
    // All that is there of the output, without waiting for more.
    std::string output();

    // The memory that it has to itself and wrote to, in bytes. Throws std::runtime_error when it
    // is gone.
    [[nodiscard]] std::size_t private_dirty() const;
    [[nodiscard]] std::size_t open_fds() const;

  private:
    [[nodiscard]] bool has_output(int timeout_ms) const;

    pid_t pid_ = 0;
    int output_ = -1;
};

} // namespace support
