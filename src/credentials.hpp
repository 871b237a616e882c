/*
 * Who the clients of a context are, as the bus knows them. The bus is asked on a separate
 * connection, because sd-bus reads and queues everything that arrives on a connection while it
 * waits there for the answer. The separate connection accepts no file descriptors, of which a
 * process has few, and drops all that isn't an answer.
 */
#pragma once

#include <gantry/context.hpp>

#include <systemd/sd-bus.h>

#include <memory>

#include <sys/types.h>

namespace gantry
{

/** The separate connection; null until the bus is first asked. */
using AskingBus = std::unique_ptr<sd_bus, decltype(&sd_bus_close_unref)>;

struct Credentials
{
    uid_t uid; // effective
    pid_t pid;
};

/** Asks the bus for the credentials of that unique name's owner. Returns a negative errno if it
 *  gives none. */
int ask_credentials(GANTRY_cpp_context& context, const char* name, Credentials& found) noexcept;

} // namespace gantry
