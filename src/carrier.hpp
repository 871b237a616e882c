/*
 * Carries an exception round libsystemd.
 *
 * sd-bus and sd-event are C: an exception that unwinds through their frames runs none of their
 * cleanup, leaves the event loop marked as running and the connection holding its current message,
 * and ends the process where C was built without unwind tables. So no exception of ours travels
 * through them. It is taken at the edge of the bus callback, kept by the innermost Carrier on the
 * stack, which belongs to the C++ frame that entered libsystemd, and thrown again there as soon as
 * the C call has returned:
 *
 *     Carrier::enter (C++)  ->  sd_event_run, ... (C)  ->  at_edge (C++)  ->  what may throw
 *           throws again    <-       returns           <-    takes
 *
 * With no Carrier on the stack, as when a host drives the thread's event loop itself, what is
 * taken is logged and dropped: kept for later, it would end some other loop.
 */
#pragma once

#include <exception>
#include <type_traits>
#include <utility>

namespace gantry
{

class Carrier
{
  public:
    Carrier() noexcept;
    ~Carrier();
    Carrier(const Carrier&) = delete;
    Carrier(Carrier&&) = delete;
    Carrier& operator=(const Carrier&) = delete;
    Carrier& operator=(Carrier&&) = delete;

    /**
     * Runs `call`, which enters libsystemd, and gives its result; throws what a bus callback
     * below it let go, and what `call` throws itself.
     */
    template <class Call>
    static auto enter(Call&& call)
    {
        Carrier carrier;
        if constexpr (std::is_void_v<std::invoke_result_t<Call>>)
        {
            std::forward<Call>(call)();
            carrier.rethrow();
        }
        else
        {
            auto result = std::forward<Call>(call)();
            carrier.rethrow();
            return result;
        }
    }

    /**
     * Takes the exception now being handled, for the innermost Carrier to throw again. Gives the
     * negative errno that says to sd-bus what it was. A thread that is being ended (pthread_exit,
     * cancellation) unwinds on: that is no exception to carry.
     */
    static int take();

  private:
    void rethrow();

    Carrier* outer;
    std::exception_ptr carried;
};

/**
 * The edge of a bus callback: runs `call` and gives its result to sd-bus, or else takes what it
 * threw and gives `failed` of the errno. Part of its caller, so that a getter pays for nothing.
 */
template <class Call>
[[gnu::always_inline]] inline int at_edge(const Call& call, int (*failed)(int error))
{
    try
    {
        return call();
    }
    catch (...)
    {
        return failed(Carrier::take());
    }
}

/** What a property's edge answers: an error, since sd-bus drops the connection of a getter that
 *  reports success and has appended nothing. */
inline int as_error(int error) noexcept
{
    return error;
}

/** What a method's or a match's edge answers: handled, and no reply. */
inline int as_handled(int /*error*/) noexcept
{
    return 1;
}

} // namespace gantry
