/*
 * Announcements of changed properties, by PropertiesChanged.
 *
 * A bus daemon that doesn't read leaves all messages in the connection's write queue, which would
 * grow without bound. So when the queue has `stalled_queue` messages, changes are only noted, each
 * property once, and sent when the queue has been written down to `relieved_queue`: one signal for
 * each object, with the values of that time. Nothing is lost, and memory is bounded by the number
 * of objects. Replies and other signals are always queued.
 */
#pragma once

#include "property.hpp"

#include <gantry/context.hpp>

#include <cstdint>

namespace gantry
{

inline constexpr std::uint64_t stalled_queue = 10'000;
inline constexpr std::uint64_t relieved_queue = 1'000;

/** Announces the property of the object that this row is of. Throws what a getter throws. */
void announce(Object& object, const Property<Object>& row);

/**
 * Announces several properties of the object at `path` in one signal. `members` ends with a null
 * pointer; the names and `interface` must live as long as the library. Throws what a getter throws,
 * and SdBusError when the signal can't be sent.
 */
void announce(GANTRY_cpp_context& context, const char* path, const char* interface, char** members);

} // namespace gantry
