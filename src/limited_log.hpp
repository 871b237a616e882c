/*
 * Logs a failure that can repeat without end, since clients or a lost bus cause it. The first
 * failures of a minute are logged, the others are counted, and one line gives their number.
 */
#pragma once

#include <systemd/sd-event.h>

namespace gantry
{

class LimitedLog
{
  public:
    /** At most `most` failures per minute are logged; `what` ends the line that counts the others.
     */
    constexpr LimitedLog(unsigned most, const char* what) noexcept : limit(most), subject(what)
    {
    }
    ~LimitedLog()
    {
        end_minute();
    }
    LimitedLog(const LimitedLog&) = delete;
    LimitedLog(LimitedLog&&) = delete;
    LimitedLog& operator=(const LimitedLog&) = delete;
    LimitedLog& operator=(LimitedLog&&) = delete;

    /** Counts a failure. A timer of `event` ends the minute. Returns whether to log the failure. */
    bool admit(sd_event* event) noexcept;

    /** Logs how many failures were not logged, and begins to count anew. */
    void end_minute() noexcept;

  private:
    const unsigned limit;
    const char* const subject;
    unsigned count = 0;
    sd_event_source* timer = nullptr;
};

} // namespace gantry
