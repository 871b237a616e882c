#include "exception_boundary.hpp"

#include <cxxabi.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <sdbusplus/exception.hpp>
#include <utility>

namespace gantry
{
namespace
{

constexpr char source_stem[] = "exception_boundary";

/**
 * Returns the positive errno of the exception being handled, and logs it for `place` unless that
 * is null, with its subject unless that is null. A forced unwind passes through.
 */
// libstdc++ gives the handler of a forced unwind a null reference, which UBSan would report. This
// isn't inlined, since UBSan would report it in the caller as well.
[[gnu::noinline]] __attribute__((no_sanitize("null"))) int
current_errno(const Place* place, const Subject* subject = nullptr)
{
    int error = EIO;
    const auto log = [place, subject](const char* what)
    {
        if (place == nullptr)
        {
            return;
        }
        GANTRY_LOG_EXCEPTION_AT(*place, what);
        if (subject != nullptr)
        {
            GANTRY_LOG_AT(*place, log::failed, "that was [%s] at [%s]", subject->interface,
                          subject->path);
        }
    };
    try
    {
        throw;
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        log(failure.what());
        if (dynamic_cast<const std::bad_alloc*>(&failure) != nullptr)
        {
            error = ENOMEM;
        }
        else if (const auto* by_bus =
                     dynamic_cast<const sdbusplus::exception::SdBusError*>(&failure);
                 by_bus != nullptr && by_bus->get_errno() > 0)
        {
            error = by_bus->get_errno();
        }
    }
    catch (...)
    {
        log("exception of unknown type");
    }
    return error;
}

} // namespace

void ExceptionRelay::drop() noexcept
{
    try
    {
        std::rethrow_exception(relayed);
    }
    catch (...)
    {
        const Place place{source_stem, __LINE__, "~ExceptionRelay"};
        current_errno(&place);
    }
}

void ExceptionRelay::rethrow()
{
    std::rethrow_exception(std::exchange(relayed, nullptr));
}

int ExceptionRelay::take()
{
    // Null for an exception of another language.
    auto taken = std::current_exception();
    const bool keeps = taken && innermost != nullptr && !innermost->relayed;
    const Place place = GANTRY_HERE;
    const int error = current_errno(keeps ? nullptr : &place);
    if (keeps)
    {
        innermost->relayed = std::move(taken);
    }
    return -error;
}

__attribute__((no_sanitize("null"))) void host_boundary(const Place& place, int* error,
                                                        CallReference call, const Subject* subject)
{
    int result = 0;
    try
    {
        result = call();
    }
    catch (...)
    {
        result = already_logged(current_errno(&place, subject));
    }
    if (error != nullptr)
    {
        *error = result < 0 ? -result : result;
    }
    else if (result > 0)
    {
        GANTRY_LOG_AT(place, log::failed, "%s", strerrordesc_np(result));
    }
}

void throw_failure(int error, const char* call)
{
    throw sdbusplus::exception::SdBusError(error, call);
}

} // namespace gantry
