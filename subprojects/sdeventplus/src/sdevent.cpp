// The instance that forwards to libsystemd.

#include "sdeventplus/internal/sdevent.hpp"

namespace sdeventplus
{
namespace internal
{

constinit SdEventImpl sdevent_impl;

} // namespace internal
} // namespace sdeventplus
