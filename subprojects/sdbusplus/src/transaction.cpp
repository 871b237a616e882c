// The thread's transaction id is a number, which is cheap to set for each property of a GetAll.

#include "sdbusplus/server/transaction.hpp"

namespace sdbusplus
{
namespace server
{
namespace transaction
{
namespace
{

/** The thread's transaction, and the message that began it. */
struct Transaction
{
    uint64_t id;
    sd_bus_message* message;
    sd_bus* bus;
    uint64_t cookie;
};

// At a fixed offset from the thread pointer, so that no call is needed to find it.
[[gnu::tls_model("initial-exec")]] constinit thread_local Transaction current{};

/** The call's cookie, which is the reply cookie of a reply under construction. */
uint64_t call_cookie(SdBusInterface* intf, sd_bus_message* m)
{
    uint64_t cookie = 0;
    if (intf->sd_bus_message_get_reply_cookie(m, &cookie) < 0)
    {
        intf->sd_bus_message_get_cookie(m, &cookie);
    }
    return cookie;
}

/** A simple hash suffices: unique names are a few bytes that differ at the end. */
uint64_t name_hash(const char* name)
{
    uint64_t hash = 0;
    for (; name != nullptr && *name != '\0'; ++name)
    {
        hash = hash * 31 + static_cast<unsigned char>(*name);
    }
    return hash;
}

/** Not inlined, because set_id seldom calls it. */
[[gnu::noinline]] void begin(SdBusInterface* intf, sd_bus_message* m, sd_bus* bus, uint64_t cookie)
{
    const char* name = nullptr;
    intf->sd_bus_get_unique_name(bus, &name);

    // Cookies count up per connection. An odd multiplier spreads them without collisions within a
    // connection.
    constexpr uint64_t spread = 0x9e3779b97f4a7c15;
    current = {name_hash(name) ^ (cookie * spread), m, bus, cookie};
}

} // namespace

void set_id(const message::message& m) noexcept
{
    SdBusInterface* intf = m.interface();
    sd_bus* bus = intf->sd_bus_message_get_bus(m.get());
    const uint64_t cookie = call_cookie(intf, m.get());

    // All getters of a GetAll get the same reply under construction.
    const Transaction& last = current;
    if (m.get() != last.message || bus != last.bus || cookie != last.cookie)
    {
        begin(intf, m.get(), bus, cookie);
    }
}

uint64_t get_id() noexcept
{
    return current.id;
}

} // namespace transaction
} // namespace server
} // namespace sdbusplus
