// References on an event loop, and its runs; the instance that forwards to libsystemd.

#include "sdeventplus/event.hpp"

#include "sdeventplus/exception.hpp"

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
    sdevent(intf), event(e, intf)
{
}

Event Event::get_default(const internal::SdEvent* intf)
{
    sd_event* e = nullptr;
    check(intf->sd_event_default(&e), "sd_event_default");
    return Event(e, std::false_type{}, intf);
}

sd_event* Event::get() const
{
    return *event;
}

int Event::run(std::optional<SdEventDuration> timeout) const
{
    // Where the kernel or libsystemd has no epoll_pwait2, a wait of less than a millisecond takes a
    // whole one. A caller that asks for so short a wait gets none instead.
    constexpr uint64_t shortest_wait = 1000;
    uint64_t usec = timeout ? timeout->count() : UINT64_MAX;
    usec = usec < shortest_wait ? 0 : usec;
    return check(sdevent->sd_event_run(*event, usec), "sd_event_run");
}

sd_event* Event::ref(sd_event* const& e, const internal::SdEvent*& intf)
{
    return intf->sd_event_ref(e);
}

void Event::drop(sd_event*&& e, const internal::SdEvent*& intf)
{
    intf->sd_event_unref(e);
}

} // namespace sdeventplus
