#include "c_edge.hpp"

#include <cxxabi.h>

#include <cerrno>
#include <exception>
#include <new>
#include <sdbusplus/exception.hpp>

namespace gantry
{
namespace
{

/** The errno that tells a failure. */
int errno_of(const std::exception& failure) noexcept
{
    if (dynamic_cast<const std::bad_alloc*>(&failure) != nullptr)
    {
        return ENOMEM;
    }
    const auto* by_bus = dynamic_cast<const sdbusplus::exception::SdBusError*>(&failure);
    return by_bus != nullptr && by_bus->get_errno() > 0 ? by_bus->get_errno() : EIO;
}

} // namespace

// libstdc++ hands a forced unwind to its handler as a reference to nothing, which UBSan takes
// amiss.
__attribute__((no_sanitize("null"))) void at_c_edge(const Place& place, int* error, EdgeCall call)
{
    int result = 0;
    try
    {
        result = call();
    }
    catch (const abi::__forced_unwind&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        GANTRY_LOG_EXCEPTION_AT(place, failure.what());
        result = errno_of(failure);
    }
    catch (...)
    {
        GANTRY_LOG_EXCEPTION_AT(place, "exception of unknown type");
        result = EIO;
    }
    if (error != nullptr)
    {
        *error = result;
    }
}

void throw_if_failed(int result, const char* call)
{
    if (result < 0)
    {
        throw sdbusplus::exception::SdBusError(-result, call);
    }
}

} // namespace gantry
