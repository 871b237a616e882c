// A transaction is one call and all that is done for it. Its id is the same for the call and for
// the reply to it, and it stays the thread's until the next call comes in.
#pragma once

#include "sdbusplus/message.hpp"

#include <cstdint>

namespace sdbusplus
{
namespace server
{
namespace transaction
{

/** Makes the message's call the thread's transaction. */
void set_id(const message::message& m) noexcept;

/** The thread's transaction; 0 before the first. */
uint64_t get_id() noexcept;

} // namespace transaction
} // namespace server
} // namespace sdbusplus
