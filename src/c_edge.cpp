#include "c_edge.hpp"

#include <cerrno>
#include <exception>
#include <new>
#include <sdbusplus/exception.hpp>

namespace gantry
{

int log_failure(const Place& place) noexcept
{
    try
    {
        throw;
    }
    catch (const std::bad_alloc& failure)
    {
        GANTRY_LOG_EXCEPTION_AT(place, failure.what());
        return ENOMEM;
    }
    catch (const sdbusplus::exception::SdBusError& failure)
    {
        GANTRY_LOG_EXCEPTION_AT(place, failure.what());
        return failure.get_errno() > 0 ? failure.get_errno() : EIO;
    }
    catch (const std::exception& failure)
    {
        GANTRY_LOG_EXCEPTION_AT(place, failure.what());
    }
    catch (...)
    {
        GANTRY_LOG_EXCEPTION_AT(place, "exception of unknown type");
    }
    return EIO;
}

} // namespace gantry
