/*
 * Who the clients of a context are, as the bus knows it. The question is asked on a connection of
 * its own: its answer is waited for, and meanwhile a connection takes in whatever arrives. What a
 * client sends to this one carries no file descriptors, which a process has few of, and is dropped.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <memory>

#include <sys/types.h>

namespace gantry
{

/** The connection; null until the first question. */
using AskingBus = std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)>;

struct Credentials
{
    uid_t uid; // effective
    pid_t pid;
};

/** Asks who has that unique name. Returns a negative errno if the bus doesn't say. */
int ask_credentials(GANTRY_cpp_context& context, const char* name, Credentials& found) noexcept;

} // namespace gantry
