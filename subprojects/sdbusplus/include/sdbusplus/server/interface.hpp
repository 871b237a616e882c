// One interface of one object, published on a connection as long as this holder exists. A process
// may have thousands, so a holder stores little: its slot, and what a signal needs.
#pragma once

#include "sdbusplus/bus.hpp"
#include "sdbusplus/message.hpp"
#include "sdbusplus/slot.hpp"

#include <memory>
#include <string>

namespace sdbusplus
{
namespace server
{
namespace interface
{

struct interface
{
    /**
     * `path` is copied; `interf` and `vtable` must outlive this object, the bus need not. Each
     * callback of the vtable gets `context`. Throws SdBusError with "sd_bus_add_object_vtable" if
     * the connection refuses.
     */
    interface(bus_t& b, const char* path, const char* interf, const sd_bus_vtable* vtable,
              void* context);

    interface(const interface&) = delete;
    interface& operator=(const interface&) = delete;

    /**
     * Makes a signal of this interface, which the caller fills and sends. Throws SdBusError with
     * "sd_bus_message_new_signal".
     */
    message::message new_signal(const char* member) const;

    /** Announces the property's present value. A failure is not reported. */
    void property_changed(const char* property);

    /** A bus of its own on the connection, which lives as long as this object. */
    bus_t& bus()
    {
        return held;
    }

    std::string path() const
    {
        return object_path.get();
    }

  private:
    bus_t held;
    const char* name;
    std::unique_ptr<char[]> object_path;
    slot_t slot;
};

} // namespace interface

using interface_t = interface::interface;

} // namespace server
} // namespace sdbusplus
