// Constant expressions for the rows of an sd-bus member table. sd-bus keeps the table's address, so
// a table must be a static array.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>

namespace sdbusplus
{
namespace vtable
{

using vtable_t = sd_bus_vtable;

/** The flags occupy 56 bits of a word; the row's type has the other 8. */
constexpr uint64_t flag_bits = (uint64_t{1} << 56) - 1;

/** Opens every table. */
constexpr vtable_t start(uint64_t flags = 0)
{
    return SD_BUS_VTABLE_START(flags & flag_bits);
}

/** Closes every table. */
constexpr vtable_t end()
{
    return SD_BUS_VTABLE_END;
}

/** A method with the signatures of its arguments and results, all of them without names. */
constexpr vtable_t method(const char* member, const char* signature, const char* result,
                          sd_bus_message_handler_t handler, uint64_t flags = 0)
{
    return SD_BUS_METHOD(member, signature, result, handler, flags & flag_bits);
}

/** A signal with the signature of its arguments, all of them without names. */
constexpr vtable_t signal(const char* member, const char* signature, uint64_t flags = 0)
{
    return SD_BUS_SIGNAL(member, signature, flags & flag_bits);
}

/** A property that clients only read. */
constexpr vtable_t property(const char* member, const char* signature, sd_bus_property_get_t get,
                            uint64_t flags = 0)
{
    return SD_BUS_PROPERTY(member, signature, get, 0, flags & flag_bits);
}

/** A property that clients read and write. */
constexpr vtable_t property(const char* member, const char* signature, sd_bus_property_get_t get,
                            sd_bus_property_set_t set, uint64_t flags = 0)
{
    return SD_BUS_WRITABLE_PROPERTY(member, signature, get, set, 0, flags & flag_bits);
}

namespace common_
{
constexpr uint64_t unprivileged = SD_BUS_VTABLE_UNPRIVILEGED;
} // namespace common_

namespace property_
{
constexpr uint64_t const_ = SD_BUS_VTABLE_PROPERTY_CONST;
constexpr uint64_t emits_change = SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
} // namespace property_

} // namespace vtable
} // namespace sdbusplus
