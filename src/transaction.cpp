#include "transaction.hpp"

namespace gantry
{

constinit thread_local Transaction Transaction::last{};

void Transaction::begin(const sd_bus* bus, sdbusplus::message_t& reply, std::uint64_t cookie)
{
    sdbusplus::server::transaction::set_id(reply);
    last.bus = bus;
    last.cookie = cookie;
    last.id = sdbusplus::server::transaction::get_id();
}

} // namespace gantry
