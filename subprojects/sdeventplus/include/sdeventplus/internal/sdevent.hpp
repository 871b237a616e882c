// The interface between the event objects and libsystemd: one virtual function per sd_event_* call,
// so that a test can replace the event loop.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>

namespace sdeventplus
{
namespace internal
{

/** Arguments, results and ownership are those of the sd-event function of the same name. */
class SdEvent
{
  public:
    virtual int sd_event_default(sd_event** event) const = 0;
    virtual sd_event* sd_event_ref(sd_event* event) const = 0;
    virtual sd_event* sd_event_unref(sd_event* event) const = 0;
    virtual int sd_event_run(sd_event* event, uint64_t usec) const = 0;

  protected:
    // Never deleted through the base: the one instance that matters lives as long as the process.
    ~SdEvent() = default;
};

/** Forwards every call to libsystemd. */
class SdEventImpl final : public SdEvent
{
  public:
    int sd_event_default(sd_event** event) const override
    {
        return ::sd_event_default(event);
    }

    sd_event* sd_event_ref(sd_event* event) const override
    {
        return ::sd_event_ref(event);
    }

    sd_event* sd_event_unref(sd_event* event) const override
    {
        return ::sd_event_unref(event);
    }

    int sd_event_run(sd_event* event, uint64_t usec) const override
    {
        return ::sd_event_run(event, usec);
    }
};

extern SdEventImpl sdevent_impl;

} // namespace internal
} // namespace sdeventplus
