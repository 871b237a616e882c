// A failed call ends the test with its name.
#pragma once

#include <system_error>

namespace support
{

inline int check(int result, const char* call)
{
    return result >= 0 ? result : throw std::system_error(-result, std::generic_category(), call);
}

} // namespace support
