// One vtable registered at one path.

#include "sdbusplus/server/interface.hpp"

#include "check.hpp"

#include <cstring>

namespace sdbusplus
{
namespace server
{
namespace interface
{
namespace
{

std::unique_ptr<char[]> copy(const char* text)
{
    const size_t size = std::strlen(text) + 1;
    auto copied = std::make_unique_for_overwrite<char[]>(size);
    std::memcpy(copied.get(), text, size);
    return copied;
}

} // namespace

interface::interface(bus_t& b, const char* path, const char* interf, const sd_bus_vtable* vtable,
                     void* context) :
    intf(b.getInterface()), name(interf), object_path(copy(path))
{
    check(intf->sd_bus_add_object_vtable(bus::details::bus_friend::get_busp(b), &slot, path, interf,
                                         vtable, context),
          "sd_bus_add_object_vtable");
}

interface::~interface()
{
    intf->sd_bus_slot_unref(slot);
}

message::message interface::new_signal(const char* member) const
{
    sd_bus_message* m = nullptr;
    check(intf->sd_bus_message_new_signal(sd_bus_slot_get_bus(slot), &m, object_path.get(), name,
                                          member),
          "sd_bus_message_new_signal");
    return message::message(m, intf, std::false_type{});
}

void interface::property_changed(const char* property)
{
    const char* names[] = {property, nullptr};
    intf->sd_bus_emit_properties_changed_strv(sd_bus_slot_get_bus(slot), object_path.get(), name,
                                              names);
}

} // namespace interface
} // namespace server
} // namespace sdbusplus
