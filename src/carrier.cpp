#include "carrier.hpp"

#include "log.hpp"

#include <cxxabi.h>

#include <cerrno>
#include <new>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "carrier";

// A bare pointer, not an object with a destructor: the thread's context may be destroyed by its
// pthread key, which is after C++ thread-locals are gone.
constinit thread_local Carrier* innermost = nullptr;

/** Logs an exception that has nowhere to go. */
void drop(const Place& place, const std::exception_ptr& dropped) noexcept
{
    try
    {
        if (dropped)
        {
            std::rethrow_exception(dropped);
        }
        GANTRY_LOG_EXCEPTION_AT(place, "foreign exception");
    }
    catch (const std::exception& error)
    {
        GANTRY_LOG_EXCEPTION_AT(place, error.what());
    }
    catch (...)
    {
        GANTRY_LOG_EXCEPTION_AT(place, "exception of unknown type");
    }
}

/** The errno of the exception being handled, negative; a forced unwind passes through. */
// libstdc++ hands a forced unwind to its handler as a reference to nothing, which UBSan takes
// amiss; inlined, it would do so again.
__attribute__((noinline, no_sanitize("null"))) int current_errno()
{
    try
    {
        throw;
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (const std::bad_alloc&)
    {
        return -ENOMEM;
    }
    catch (...)
    {
        return -EIO;
    }
}

} // namespace

Carrier::Carrier() noexcept : outer(innermost)
{
    innermost = this;
}

Carrier::~Carrier()
{
    innermost = outer;
    if (carried)
    {
        // The call that was entered failed by an exception of its own, which comes first.
        drop(GANTRY_HERE, carried);
    }
}

void Carrier::rethrow()
{
    if (carried)
    {
        std::rethrow_exception(std::exchange(carried, nullptr));
    }
}

int Carrier::take()
{
    const int error = current_errno();
    auto taken = std::current_exception();
    if (innermost != nullptr && !innermost->carried && taken)
    {
        innermost->carried = std::move(taken);
    }
    else
    {
        drop(GANTRY_HERE, taken);
    }
    return error;
}

} // namespace gantry
