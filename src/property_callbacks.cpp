#include "property_callbacks.hpp"

#include "announcement.hpp"
#include "property_callbacks_impl.hpp"

#include <array>
#include <cstring>
#include <tallybook.hpp>

namespace gantry
{

// Instantiated for speed, with those of the other types.
extern template std::string set(std::string&, Passed<std::string>, bool, Object&,
                                const Property<Object>&);

namespace
{

/** Texts and containers below this size are not summed. There is room for one in each property. */
constexpr std::size_t small_size = 1024;

/** Adds a property's value to the size of a message. */
using AddValue = void (*)(WireSize& size, const Property<Object>& row, const Object& object);

template <class Type>
void add_value(WireSize& size, const Property<Object>& row, const Object& object)
{
    size.add_bytes(8, wire_size((object.*accessors_of<Type>(row).get)()));
}

/** One function for each property type, in the order of the tags; null for a number. */
template <class... Types>
constexpr auto adders(TypeList<Types...> /*types*/)
{
    return std::array{[]() -> AddValue
                      {
                          if constexpr (!std::is_arithmetic_v<Types>)
                          {
                              return add_value<Types>;
                          }
                          return nullptr;
                      }()...};
}

constexpr auto add_by_type = adders(PropertyTypes{});

} // namespace

void announce_or_hold(Object& object, const Property<Object>& row)
{
    for (auto* served = ServedCall::current(); served != nullptr; served = served->outer)
    {
        if (served->holds_change && served->object == &object && &served->written->row == &row)
        {
            served->has_change = true;
            return;
        }
    }
    announce(object, row);
}

bool has_room(ServedCall& served, const Object& object, std::size_t size)
{
    if (size < small_size)
    {
        return true;
    }
    const auto& written = *served.written;
    WireSize all;
    for (const auto* each = written.vtable; each->type != _SD_BUS_VTABLE_END; ++each)
    {
        if (each->type != _SD_BUS_VTABLE_PROPERTY && each->type != _SD_BUS_VTABLE_WRITABLE_PROPERTY)
        {
            continue;
        }
        const char* const member = each->x.property.member;
        all.add_bytes(8, 0);
        all.add_text(std::strlen(member));
        all.add_signature(std::strlen(each->x.property.signature));
        const auto& row = *written.properties.find(member);
        if (&row == &written.row)
        {
            all.add_bytes(8, size);
        }
        else if (const auto add = add_by_type[row.type]; add != nullptr)
        {
            add(all, row, object);
        }
        else
        {
            all.add_bytes(8, 8);
        }
    }
    if (all.size() <= max_value_size() - Properties::max_count * small_size)
    {
        return true;
    }
    const std::string text =
        std::string("the object's properties would be too large with this ") + written.row.member;
    served.fail(SD_BUS_ERROR_LIMITS_EXCEEDED, text.c_str());
    return false;
}

void store_unless_refused(ServedCall& served, GANTRY_instance& listener, CallReference store,
                          CallReference put_back)
{
    served.holds_change = true;
    const auto announce_held = [&]
    {
        served.holds_change = false;
        // An object that the host has freed meanwhile has left the bus for its clients.
        if (served.has_change && listener.is_listed)
        {
            announce_or_hold(*static_cast<Object*>(listener.the_service), served.written->row);
        }
    };
    try
    {
        store();
    }
    catch (...)
    {
        // What is stored by then stays.
        announce_held();
        throw;
    }
    try
    {
        if (listener.written != nullptr)
        {
            listener.written(&listener, served.written->row.member, listener.written_data);
        }
    }
    catch (...)
    {
        put_back();
        throw;
    }
    if (served.is_taken())
    {
        put_back();
        return;
    }
    announce_held();
}

constinit thread_local Transaction Transaction::last{};

void begin_transaction(const sd_bus* bus, sd_bus_message* reply, std::uint64_t cookie,
                       sdbusplus::SdBusInterface* bus_interface)
{
    sdbusplus::message_t message(reply, bus_interface);
    sdbusplus::server::transaction::set_id(message);
    Transaction::last = {bus, cookie, sdbusplus::server::transaction::get_id()};
}

std::string set_key(std::string& stored, std::string& value, bool skip_signal, Object& object,
                    const Property<Object>& row, const char* class_name)
{
    static_cast<void>(set(stored, value, skip_signal, object, row));
    // Set or equal before, the stored value is the one that was given.
    Tallybook::set_key(stored, class_name, object.server_interface.path(),
                       static_cast<unsigned short>(tallybook_caller_id()));
    return stored;
}

void remove_key(const std::string& stored)
{
    Tallybook::remove(stored);
}

} // namespace gantry
