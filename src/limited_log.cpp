#include "limited_log.hpp"

#include "log.hpp"

#include <cstdint>
#include <ctime>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "limited_log";

int on_minute(sd_event_source* /*source*/, std::uint64_t /*time*/, void* log)
{
    static_cast<LimitedLog*>(log)->end_minute();
    return 0;
}

} // namespace

bool LimitedLog::admit(sd_event* event) noexcept
{
    constexpr std::uint64_t minute = 60'000'000;
    const bool is_logged = ++count <= limit;
    if (timer == nullptr &&
        sd_event_add_time_relative(event, &timer, CLOCK_MONOTONIC, minute, 0, on_minute, this) < 0)
    {
        count = 0; // nothing would end the minute
    }
    return is_logged;
}

void LimitedLog::end_minute() noexcept
{
    if (count > limit)
    {
        GANTRY_LOG(log::failed, "%u more %s", count - limit, subject);
    }
    count = 0;
    timer = sd_event_source_disable_unref(timer);
}

} // namespace gantry
