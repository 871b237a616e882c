// An Event holds one reference on an sd_event loop. Copies share the loop; the last reference frees
// it.
#pragma once

#include "sdeventplus/internal/sdevent.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <ratio>
#include <stdplus/handle/copyable.hpp>
#include <type_traits>

namespace sdeventplus
{

/** sd-event counts in microseconds. */
using SdEventDuration = std::chrono::duration<uint64_t, std::micro>;

class Event
{
  public:
    /** Takes a further reference on the loop. */
    explicit Event(sd_event* event, const internal::SdEvent* sdevent = &internal::sdevent_impl);

    /** Takes over the caller's reference on the loop. */
    Event(sd_event* event, std::false_type,
          const internal::SdEvent* sdevent = &internal::sdevent_impl);

    /**
     * The calling thread's default loop, created at first use. Throws SdEventError if sd-event
     * fails.
     */
    static Event get_default(const internal::SdEvent* sdevent = &internal::sdevent_impl);

    /** The sd-event loop, valid as long as this object holds it. */
    sd_event* get() const;

    /**
     * Waits up to `timeout`, or without limit if it is empty, and dispatches at most one source.
     * Returns a positive number if one was dispatched and 0 if none was. Throws SdEventError.
     */
    int run(std::optional<SdEventDuration> timeout) const;

  private:
    static sd_event* ref(sd_event* const& event, const internal::SdEvent*& sdevent);
    static void drop(sd_event*&& event, const internal::SdEvent*& sdevent);

    using Handle =
        stdplus::Copyable<sd_event*, const internal::SdEvent*>::Handle<Event::drop, Event::ref>;

    const internal::SdEvent* sdevent;
    Handle event;
};

} // namespace sdeventplus
