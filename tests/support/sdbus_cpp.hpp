// What clients of sdbus-c++ need under its versions 1 and 2.
#pragma once

#include <optional>
#include <string>

#include <sdbus-c++/sdbus-c++.h>

namespace support
{

#if __has_include(<sdbus-c++/VTableItems.h>) // since 2
using ServiceName = sdbus::ServiceName;
using Failure = std::optional<sdbus::Error>;

inline void finish(sdbus::IProxy& /*proxy*/)
{
}
#else
using ServiceName = std::string;
using Failure = const sdbus::Error*;

inline void finish(sdbus::IProxy& proxy)
{
    proxy.finishRegistration();
}
#endif

} // namespace support
