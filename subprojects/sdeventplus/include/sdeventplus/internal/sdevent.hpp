// What the event objects call of libsystemd.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

namespace sdeventplus
{
namespace internal
{

/**
 * Forwards every call to the sd-event function of the same name. A test overrides what it replaces.
 */
class SdEvent
{
  public:
    virtual int sd_event_default(sd_event** event) const
    {
        return ::sd_event_default(event);
    }

    virtual sd_event* sd_event_ref(sd_event* event) const
    {
        return ::sd_event_ref(event);
    }

    virtual sd_event* sd_event_unref(sd_event* event) const
    {
        return ::sd_event_unref(event);
    }

    virtual int sd_event_run(sd_event* event, uint64_t usec) const
    {
        return ::sd_event_run(event, usec);
    }

  protected:
    // Never deleted through the base: the one instance that matters lives as long as the process.
    ~SdEvent() = default;
};

class SdEventImpl final : public SdEvent
{
};

extern SdEventImpl sdevent_impl;

} // namespace internal
} // namespace sdeventplus
