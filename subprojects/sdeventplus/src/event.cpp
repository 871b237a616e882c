// References on an event loop, and its runs; the instance that forwards to libsystemd.

#include "sdeventplus/event.hpp"

#include "sdeventplus/exception.hpp"

#include <utility>

namespace sdeventplus
{

constinit internal::SdEventImpl internal::sdevent_impl;

namespace
{

int check(int result, const char* call)
{
    if (result < 0)
    {
        throw SdEventError(-result, call);
    }
    return result;
}

} // namespace

Event::Event(sd_event* e, const internal::SdEvent* intf) :
    Event(intf->sd_event_ref(e), std::false_type{}, intf)
{
}

Event::Event(sd_event* e, std::false_type, const internal::SdEvent* intf) :
    reference(e, Unref{intf})
{
}

Event::Event(const Event& other) : Event(other.get(), other.reference.get_deleter().sdevent)
{
}

Event& Event::operator=(Event other) noexcept
{
    reference = std::move(other.reference);
    return *this;
}

Event Event::get_default(const internal::SdEvent* intf)
{
    sd_event* e = nullptr;
    check(intf->sd_event_default(&e), "sd_event_default");
    return Event(e, std::false_type{}, intf);
}

sd_event* Event::get() const
{
    return reference.get();
}

int Event::run(std::optional<SdEventDuration> timeout) const
{
    // Where the kernel or libsystemd has no epoll_pwait2, a wait of less than a millisecond takes a
    // whole one. A caller that asks for so short a wait gets none instead.
    constexpr uint64_t shortest_wait = 1000;
    uint64_t usec = timeout ? timeout->count() : UINT64_MAX;
    usec = usec < shortest_wait ? 0 : usec;
    return check(reference.get_deleter().sdevent->sd_event_run(get(), usec), "sd_event_run");
}

} // namespace sdeventplus
