// One vtable registered at one path.

#include "sdbusplus/server/interface.hpp"

#include "check.hpp"
#include "sdbusplus/message.hpp"

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

sd_bus* get_busp(const bus::bus& b)
{
    return bus::details::bus_friend::get_busp(b);
}

} // namespace

interface::interface(bus_t& b, const char* path, const char* interf, const sd_bus_vtable* vtable,
                     void* context) :
    connection(b), name(interf), object_path(copy(path))
{
    check(b.getInterface()->sd_bus_add_object_vtable(get_busp(b), &slot, path, interf, vtable,
                                                     context),
          "sd_bus_add_object_vtable");
}

interface::~interface()
{
    connection.getInterface()->sd_bus_slot_unref(slot);
}

message::message interface::new_signal(const char* member) const
{
    return connection.new_signal(object_path.get(), name, member);
}

void interface::property_changed(const char* property)
{
    const char* names[] = {property, nullptr};
    connection.getInterface()->sd_bus_emit_properties_changed_strv(get_busp(connection),
                                                                   object_path.get(), name, names);
}

} // namespace interface
} // namespace server
} // namespace sdbusplus
