/*
 * One signal for the changes of several properties.
 *
 * sd-bus drops the whole signal for one name that it doesn't know, or whose member-table row says
 * that it announces nothing. So the names are looked at first, and such a one is left out. Names
 * are told apart by their rows, so those that remain fit into an array on the stack.
 */
#include "c_edge.hpp"
#include "carrier.hpp"
#include "descriptor.hpp"
#include "gantrycontext.hpp"

#include <gantry/property.hpp>

#include <systemd/sd-bus.h>

#include <bitset>
#include <cerrno>

namespace
{

constexpr char source_stem[] = "announce";

/** Some rows of a class, by their places. */
using Rows = std::bitset<255>;

/** The properties that announce no change. The vtable has them in the order of the rows. */
Rows silent(const sd_bus_vtable* row)
{
    constexpr auto announces =
        SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE | SD_BUS_VTABLE_PROPERTY_EMITS_INVALIDATION;
    Rows rows;
    std::size_t place = 0;
    for (; row->type != _SD_BUS_VTABLE_END; ++row)
    {
        const bool is_property =
            row->type == _SD_BUS_VTABLE_PROPERTY || row->type == _SD_BUS_VTABLE_WRITABLE_PROPERTY;
        if (is_property)
        {
            rows.set(place++, (row->flags & announces) == 0);
        }
    }
    return rows;
}

} // namespace

int GANTRY_cpp_property_announce(GANTRY_instance* instance, const char* const* members)
{
    if (instance == nullptr)
    {
        return EINVAL;
    }
    if (members == nullptr)
    {
        return 0;
    }

    const auto& descriptor = *instance->descriptor;
    const auto* properties = descriptor.properties;
    const Rows unannounced = silent(descriptor.vtable);
    Rows taken;
    char* names[Rows{}.size() + 1];
    std::size_t count = 0;
    int error = 0;
    for (; *members != nullptr; ++members)
    {
        const auto* row = properties != nullptr ? properties->find(*members) : nullptr;
        if (row == nullptr)
        {
            GANTRY_LOG(gantry::log::failed, "there is no property [%s]", *members);
            error = error != 0 ? error : ENOENT;
            continue;
        }
        const auto place = properties->place_of(*row);
        if (unannounced[place])
        {
            GANTRY_LOG(gantry::log::failed, "property [%s] never announces a change", *members);
            error = error != 0 ? error : EINVAL;
        }
        else if (!taken[place])
        {
            taken.set(place);
            // sd-bus only reads it.
            names[count++] = const_cast<char*>(row->member);
        }
    }
    if (count == 0)
    {
        return error;
    }
    names[count] = nullptr;

    // sd-bus runs the getters, hence the carrier.
    const int result = gantry::Carrier::enter(
        [&]
        {
            return sd_bus_emit_properties_changed_strv(GANTRY_get_sd_bus(instance->vctx->bus),
                                                       instance->path, descriptor.interface, names);
        });
    gantry::throw_if_failed(result, "sd_bus_emit_properties_changed_strv");
    return error;
}

void GANTRY_property_announce(GANTRY_instance* instance, const char* const* members, int* error)
{
    gantry::at_c_edge(GANTRY_HERE, error,
                      [&] { return GANTRY_cpp_property_announce(instance, members); });
}
