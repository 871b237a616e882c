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

sd_bus* get_busp(const bus_t& b)
{
    return bus::details::bus_friend::get_busp(b);
}

sd_bus_slot* added(const bus_t& b, const char* path, const char* interf,
                   const sd_bus_vtable* vtable, void* context)
{
    sd_bus_slot* slot = nullptr;
    check(b.getInterface()->sd_bus_add_object_vtable(get_busp(b), &slot, path, interf, vtable,
                                                     context),
          "sd_bus_add_object_vtable");
    return slot;
}

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
    held(get_busp(b), b.getInterface()),
    name(interf),
    object_path(copy(path)),
    slot(added(b, path, interf, vtable, context))
{
}

message::message interface::new_signal(const char* member) const
{
    sd_bus_message* m = nullptr;
    check(held.getInterface()->sd_bus_message_new_signal(get_busp(held), &m, object_path.get(),
                                                         name, member),
          "sd_bus_message_new_signal");
    return message::message(m, held.getInterface(), std::false_type{});
}

void interface::property_changed(const char* property)
{
    const char* names[] = {property, nullptr};
    held.getInterface()->sd_bus_emit_properties_changed_strv(get_busp(held), object_path.get(),
                                                             name, names);
}

} // namespace interface
} // namespace server
} // namespace sdbusplus
