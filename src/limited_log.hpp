/*
 * A failure that can repeat without end, since clients or a lost bus cause it: its first lines of a
 * minute go to the log, the others are counted, and one line has their number.
 */
#pragma once

#include <systemd/sd-event.h>

namespace gantry
{

class LimitedLog
{
  public:
    /** Of each minute `most` lines are logged; `what` ends the line that counts the others. */
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

    /** Counts a failure, in a minute that a timer of `event` ends. Returns whether it is to be
     *  logged. */
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
