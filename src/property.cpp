#include "property.hpp"

#include "carrier.hpp"
#include "utf8.hpp"

#include <functional>
#include <sdbusplus/sdbuspp_support/server.hpp>
#include <utility>

namespace gantry
{
namespace
{

/** Announces a change. sd-bus runs getters to do so, hence the carrier. */
void announce(sdbusplus::server::interface::interface& interface, const char* member)
{
    Carrier::enter([&interface, member] { interface.property_changed(member); });
}

/** A value as the bus takes it. Only text can be anything else. */
template <class Type>
Type for_bus(Type value)
{
    return value;
}

template <>
std::string for_bus(std::string value)
{
    return is_utf8(value) ? std::move(value) : repaired_utf8(value);
}

template <>
std::vector<std::string> for_bus(std::vector<std::string> values)
{
    for (auto& value : values)
    {
        value = for_bus(std::move(value));
    }
    return values;
}

} // namespace

template <class Type>
Type set(Type& stored, Passed<std::type_identity_t<Type>> value, bool skip_signal,
         sdbusplus::server::interface::interface& interface, const char* member)
{
    if (stored != value)
    {
        stored = std::move(value);
        if (!skip_signal)
        {
            announce(interface, member);
        }
    }
    return stored;
}

template <class Type>
int get_property(sd_bus_message* reply, const Object& object, sdbusplus::SdBusInterface* bus,
                 sd_bus_error* error, Getter<Type> getter)
{
    const auto get = [&object, getter] { return for_bus((object.*getter)()); };
    return at_edge(
        [&]
        {
            // A reference to `get` fits into the function object: nothing is allocated.
            return sdbusplus::sdbuspp::property_callback(reply, bus, error,
                                                         std::function<Type()>(std::cref(get)));
        },
        as_error);
}

#define GANTRY_PROPERTY_TYPE(Type)                                                                 \
    template Type set(Type&, Passed<Type>, bool, sdbusplus::server::interface::interface&,         \
                      const char*);                                                                \
    template int get_property(sd_bus_message*, const Object&, sdbusplus::SdBusInterface*,          \
                              sd_bus_error*, Getter<Type>);

GANTRY_PROPERTY_TYPE(bool)
GANTRY_PROPERTY_TYPE(double)
GANTRY_PROPERTY_TYPE(short)
GANTRY_PROPERTY_TYPE(std::string)
GANTRY_PROPERTY_TYPE(std::vector<std::string>)
GANTRY_PROPERTY_TYPE(unsigned short)
GANTRY_PROPERTY_TYPE(unsigned int)
GANTRY_PROPERTY_TYPE(unsigned long)
GANTRY_PROPERTY_TYPE(unsigned char)

#undef GANTRY_PROPERTY_TYPE

} // namespace gantry
