/*
 * The two boundaries between C++ and C, which no exception crosses.
 *
 * A bus callback is called by libsystemd. sd-bus and sd-event are C: an exception that unwinds
 * through their frames runs none of their cleanup, leaves the event loop marked as running and the
 * connection holding its current message, and ends the process where C was built without unwind
 * tables. So bus_boundary() catches an exception in the callback. The innermost ExceptionRelay on
 * the stack, which belongs to the C++ function that entered libsystemd, keeps it, and throws it
 * again as soon as the C call has returned:
 *
 *     ExceptionRelay::enter  ->  sd_event_run, ... (C)  ->  bus_boundary  ->  what may throw
 *
 *     throws it again        <-  returns                <-  catches it
 *
 * Without an ExceptionRelay on the stack, as when a host drives the thread's event loop itself, the
 * exception is logged and dropped: if it were kept, it would end some other loop later.
 *
 * An exported function is called by the host. host_boundary() logs its exception and makes it the
 * errno that the function reports.
 *
 * A forced unwind (pthread_exit, cancellation) passes both boundaries, since it ends the thread.
 */
#pragma once

#include "log.hpp"

#include <gantry/export.h>

#include <pthread.h>

#include <exception>

namespace gantry
{

class ExceptionRelay
{
  public:
    ExceptionRelay() noexcept : outer(innermost)
    {
        innermost = this;
    }
    ~ExceptionRelay()
    {
        innermost = outer;
        if (relayed)
        {
            // The entered call threw an exception of its own, which continues instead.
            drop();
        }
    }
    ExceptionRelay(const ExceptionRelay&) = delete;
    ExceptionRelay(ExceptionRelay&&) = delete;
    ExceptionRelay& operator=(const ExceptionRelay&) = delete;
    ExceptionRelay& operator=(ExceptionRelay&&) = delete;

    /**
     * Runs `call`, which enters libsystemd, and returns its result. Throws what `call` itself
     * throws, and the exception that a bus callback below it threw.
     */
    template <class Call>
    static int enter(const Call& call)
    {
        ExceptionRelay relay;
        const int result = call();
        if (relay.relayed)
        {
            relay.rethrow();
        }
        return result;
    }

    /**
     * Hands the exception being handled to the innermost ExceptionRelay; logs and drops it if there
     * is none or if that one already has one. Returns the exception's errno, negative.
     */
    GANTRY_API static int take();

    /** Whether the innermost ExceptionRelay has an exception. Whoever catches that will log it. */
    static bool is_relaying() noexcept
    {
        return innermost != nullptr && innermost->relayed;
    }

  private:
    [[noreturn, gnu::cold]] void rethrow();
    [[gnu::cold]] void drop() noexcept;

    // A bare pointer, not an object with a destructor: the destructor of the thread's pthread key
    // may destroy the thread's context after C++ thread-locals are gone. The model puts it at a
    // fixed offset from the thread pointer, so that no call is needed to find it.
    [[gnu::tls_model(
        "initial-exec")]] inline static constinit thread_local ExceptionRelay* innermost = nullptr;

    ExceptionRelay* outer;
    std::exception_ptr relayed;
};

/**
 * The boundary of a bus callback: returns the result of `call` to sd-bus, or, if `call` throws,
 * what `failed` makes of the exception's negative errno. It is inlined into its caller, so that a
 * getter pays nothing for it.
 */
template <class Call>
[[gnu::always_inline]] inline int bus_boundary(const Call& call, int (*failed)(int error))
{
    try
    {
        return call();
    }
    catch (...)
    {
        return failed(ExceptionRelay::take());
    }
}

/** The `failed` of a property: returns the error, since sd-bus closes the connection if a getter
 *  reports success and has appended nothing. */
inline int as_error(int error) noexcept
{
    return error;
}

/** The `failed` of a method or a match: the message counts as handled, without a reply. */
inline int as_handled(int /*error*/) noexcept
{
    return 1;
}

/** Disables the thread's cancellation for as long as this object exists. A cancellation that
 *  unwinds through a destructor, or another noexcept function, would abort the process. */
class NoCancellation
{
  public:
    NoCancellation() noexcept
    {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    }
    ~NoCancellation()
    {
        pthread_setcancelstate(before, nullptr);
    }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation(NoCancellation&&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    NoCancellation& operator=(NoCancellation&&) = delete;

  private:
    int before = 0;
};

/** Type-erased, non-owning reference to a callable that returns int, so that host_boundary() is
 *  compiled only once. */
class CallReference
{
  public:
    template <class Call>
    CallReference(const Call& call) :
        object(&call), function([](const void* of) { return (*static_cast<const Call*>(of))(); })
    {
    }

    int operator()() const
    {
        return function(object);
    }

  private:
    const void* object;
    int (*function)(const void* of);
};

/** What a call returns to host_boundary() for a failure that it has logged itself. */
constexpr int already_logged(int error) noexcept
{
    return -error;
}

/** The object that a call is about. */
struct Subject
{
    const char* interface;
    const char* path;
};

/**
 * The boundary of an exported function that reports an errno: stores the result of `call` in
 * *error, or logs it for `place` if `error` is null. If `call` throws, logs the exception for
 * `place`, with its subject if there is one, and stores its positive errno.
 */
void host_boundary(const Place& place, int* error, CallReference call,
                   const Subject* subject = nullptr);

[[noreturn, gnu::cold]] void throw_failure(int error, const char* call);

/** Throws SdBusError if `result` is the negative errno of a failed `call` into libsystemd. */
inline void throw_if_failed(int result, const char* call)
{
    if (result < 0)
    {
        throw_failure(-result, call);
    }
}

} // namespace gantry
