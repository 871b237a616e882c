/*
 * The thread's transaction, as sdbusplus has it: an id made of the connection and the call's
 * cookie, which a host in C++ reads with sdbusplus::server::transaction::get_id(). Each getter has
 * to make the reply it appends to the transaction, and a GetAll runs all getters for one reply, so
 * this remembers what the id was made of.
 */
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <sdbusplus/message.hpp>
#include <sdbusplus/server/transaction.hpp>

namespace gantry
{

class Transaction
{
  public:
    /** Makes the call that this reply on the bus answers the thread's transaction. A signal has
     *  cookie 0. */
    [[gnu::always_inline]] static void enter(const sd_bus* bus, sdbusplus::message_t& reply)
    {
        std::uint64_t cookie = 0;
        sd_bus_message_get_reply_cookie(reply.get(), &cookie);
        if (cookie != last.cookie || bus != last.bus ||
            sdbusplus::server::transaction::get_id() != last.id)
        {
            begin(bus, reply, cookie);
        }
    }

  private:
    [[gnu::noinline]] static void begin(const sd_bus* bus, sdbusplus::message_t& reply,
                                        std::uint64_t cookie);

    const sd_bus* bus;
    std::uint64_t cookie;
    std::uint64_t id;

    // At a fixed offset from the thread pointer, so that no call is needed to find it.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local Transaction last;
};

} // namespace gantry
