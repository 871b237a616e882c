// An Event holds one reference on an sd_event loop. Copies share the loop; the last reference frees
// it.
#pragma once

#include "sdeventplus/internal/sdevent.hpp"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ratio>
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

    Event(const Event& other);
    Event(Event&& other) noexcept = default;
    Event& operator=(Event other) noexcept;
    ~Event() = default;

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
    struct Unref
    {
        void operator()(sd_event* event) const
        {
            sdevent->sd_event_unref(event);
        }

        const internal::SdEvent* sdevent;
    };

    std::unique_ptr<sd_event, Unref> reference;
};

} // namespace sdeventplus
