// The one way to libsystemd.

#include "sdeventplus/internal/sdevent.hpp"

namespace sdeventplus
{
namespace internal
{

constinit SdEventImpl sdevent_impl;

} // namespace internal
} // namespace sdeventplus
