// How a negative result of sd-bus becomes an exception.
#pragma once

#include "sdbusplus/exception.hpp"

namespace sdbusplus
{

/** Passes a result on, or throws SdBusError for the negative one of `call`. */
inline int check(int result, const char* call)
{
    if (result < 0)
    {
        throw exception::SdBusError(-result, call);
    }
    return result;
}

} // namespace sdbusplus
