// The thread's transaction is a number, cheap enough to be set at each property of a GetAll.

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

// At a fixed place behind the thread pointer: no call to find it at each property.
[[gnu::tls_model("initial-exec")]] constinit thread_local Transaction current{};

/** A reply under construction has no cookie of its own yet: it stands for the call it answers. */
uint64_t call_cookie(SdBusInterface* intf, sd_bus_message* m)
{
    uint64_t cookie = 0;
    if (intf->sd_bus_message_get_reply_cookie(m, &cookie) < 0)
    {
        intf->sd_bus_message_get_cookie(m, &cookie);
    }
    return cookie;
}

/** Unique names are a few bytes that differ at the end, too short for more than this. */
uint64_t name_hash(const char* name)
{
    uint64_t hash = 0;
    for (; name != nullptr && *name != '\0'; ++name)
    {
        hash = hash * 31 + static_cast<unsigned char>(*name);
    }
    return hash;
}

/** Out of set_id's way, which seldom gets here. */
[[gnu::noinline]] void begin(SdBusInterface* intf, sd_bus_message* m, sd_bus* bus, uint64_t cookie)
{
    const char* name = nullptr;
    intf->sd_bus_get_unique_name(bus, &name);

    // Cookies count up per connection, so an odd multiplier spreads them and no two of one
    // connection collide.
    constexpr uint64_t spread = 0x9e3779b97f4a7c15;
    current = {name_hash(name) ^ (cookie * spread), m, bus, cookie};
}

} // namespace

void set_id(const message::message& m) noexcept
{
    SdBusInterface* intf = m.interface();
    sd_bus* bus = intf->sd_bus_message_get_bus(m.get());
    const uint64_t cookie = call_cookie(intf, m.get());

    // The getters of a GetAll all have the one reply under construction.
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
