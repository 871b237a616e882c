// A transaction is one call and everything done for it. The call and its reply have the same id,
// which remains the thread's until the next call arrives.
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
