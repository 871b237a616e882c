// Turns a negative result of sd-bus into an exception.
#pragma once

#include "sdbusplus/exception.hpp"

namespace sdbusplus
{

/** Returns the result of `call`, or throws SdBusError if it is negative. */
inline int check(int result, const char* call)
{
    if (result < 0)
    {
        throw exception::SdBusError(-result, call);
    }
    return result;
}

} // namespace sdbusplus
