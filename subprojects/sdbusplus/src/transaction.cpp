// A transaction's id is made of the connection and the call's cookie.

#include "sdbusplus/server/transaction.hpp"

namespace sdbusplus
{
namespace server
{
namespace transaction
{
namespace
{

// The model puts it at a fixed offset from the thread pointer, so that no call is needed to find
// it.
[[gnu::tls_model("initial-exec")]] constinit thread_local uint64_t current = 0;

} // namespace

void set_id(const message::message& m) noexcept
{
    uint64_t cookie = 0;
    // The call's cookie, which is the reply cookie of a reply under construction.
    if (sd_bus_message_get_reply_cookie(m.get(), &cookie) < 0)
    {
        sd_bus_message_get_cookie(m.get(), &cookie);
    }
    // Cookies count up per connection. An odd multiplier spreads them without collisions within a
    // connection.
    constexpr uint64_t spread = 0x9e3779b97f4a7c15;
    const sd_bus* bus = sd_bus_message_get_bus(m.get());
    current = reinterpret_cast<uintptr_t>(bus) ^ (cookie * spread);
}

uint64_t get_id() noexcept
{
    return current;
}

} // namespace transaction
} // namespace server
} // namespace sdbusplus
