// A failed sd_event_* call as a std::system_error whose text begins with the call's name.
#pragma once

#include <system_error>

namespace sdeventplus
{

class SdEventError final : public std::system_error
{
  public:
    /** `error` is the positive errno, `prefix` the name of the failed call. */
    SdEventError(int error, const char* prefix) :
        std::system_error(error, std::generic_category(), prefix)
    {
    }
};

} // namespace sdeventplus
