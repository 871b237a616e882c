// A failed sd-bus call ends the test with its name.
#pragma once

#include <system_error>

namespace support
{

inline int check(int result, const char* call)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), call);
    }
    return result;
}

} // namespace support
