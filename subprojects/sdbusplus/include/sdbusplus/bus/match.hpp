// A match is a subscription: as long as it exists, the dispatch loop calls its callback with each
// message on the connection that fits its rule.
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/slot.hpp"

#include <functional>
#include <memory>
#include <string>

namespace sdbusplus
{
namespace bus
{
namespace match
{

struct match
{
    using callback_t = std::function<void(message::message&)>;

    /**
     * A rule that the connection refuses is not an error: the callback is then never called. An
     * exception from the callback propagates through sd-bus's dispatching.
     */
    match(bus& b, const char* rule, callback_t callback);

    match(bus& b, const std::string& rule, callback_t callback) :
        match(b, rule.c_str(), std::move(callback))
    {
    }

    match(match&&) = default;
    match& operator=(match&&) = default;
    ~match() = default;

  private:
    // Destroyed after `held`. The callback is on the heap because sd-bus keeps its address.
    slot_t registration;
    std::unique_ptr<callback_t> held;
};

} // namespace match

using match_t = match::match;

} // namespace bus
} // namespace sdbusplus
