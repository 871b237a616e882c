// A failed call ends the test with the name of the function that made it.
#pragma once

#include <system_error>

namespace support
{

inline int check(int result, const char* caller = __builtin_FUNCTION())
{
    return result >= 0 ? result : throw std::system_error(-result, std::generic_category(), caller);
}

} // namespace support
