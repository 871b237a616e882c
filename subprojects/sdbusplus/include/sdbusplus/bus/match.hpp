// A match is a subscription: for as long as it lives, each message on the connection that fits its
// rule is handed to its callback from within the dispatch loop.
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
     * A rule that the connection refuses is no error: the callback is never called. What the
     * callback throws leaves sd-bus's dispatching by the way it came.
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
    // The callback goes before the slot. It is on the heap because sd-bus keeps its address.
    slot_t registration;
    std::unique_ptr<callback_t> held;
};

} // namespace match

using match_t = match::match;

} // namespace bus
} // namespace sdbusplus
