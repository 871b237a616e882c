// Forwards sd-bus's plain callback to the match's std::function.

#include "sdbusplus/bus/match.hpp"
#include "sdbusplus/message.hpp"

#include <utility>

namespace sdbusplus
{
namespace bus
{
namespace match
{
namespace
{

int trampoline(sd_bus_message* m, void* userdata, sd_bus_error*)
{
    message::message arrival(m, &sdbus_impl);
    (*static_cast<match::callback_t*>(userdata))(arrival);
    return 0;
}

} // namespace

match::match(bus& b, const char* rule, callback_t c) :
    held(std::make_unique<callback_t>(std::move(c)))
{
    sd_bus_slot* s = nullptr;
    sd_bus_add_match(details::bus_friend::get_busp(b), &s, rule, &trampoline, held.get());
    registration.reset(s);
}

} // namespace match
} // namespace bus
} // namespace sdbusplus
