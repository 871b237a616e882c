#include "property_callbacks.hpp"

#include "announcement.hpp"
#include "property_callbacks_impl.hpp"

#include <cstring>
#include <tallybook.hpp>

namespace gantry
{

// Instantiated with those of the other types, in a file that is compiled for speed.
extern template std::string set(std::string&, Passed<std::string>, bool, Object&,
                                const Property<Object>&);

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
    const auto& written = *served.written;
    const auto* const header = &written.row.header();
    const auto* const entries = property_entries(*header);
    WireSize all;
    for (std::size_t place = 1; entries[place].type != _SD_BUS_VTABLE_END; ++place)
    {
        const auto& row = header[place];
        all.add_bytes(8, 0);
        all.add_text(row.length);
        all.add_signature(std::strlen(entries[place].x.property.signature));
        if (&row == &written.row)
        {
            all.add_bytes(8, size);
        }
        else if (const auto add = written.properties.add_by_type[row.type]; add != nullptr)
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
        // An object that the host has freed meanwhile announces nothing more.
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
        // If the value is stored already, it stays.
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
    using namespace sdbusplus::server::transaction;

    auto& last = Transaction::last;
    if (cookie == last.cookie && bus == last.bus && get_id() == last.id)
    {
        return; // the caller is a host's code, which has its own copy of sdbusplus
    }
    sdbusplus::message_t message(reply, bus_interface);
    set_id(message);
    last = {bus, cookie, get_id()};
}

std::string set_key(std::string& stored, std::string& value, bool skip_signal, Object& object,
                    const Property<Object>& row, const char* class_name)
{
    static_cast<void>(set(stored, value, skip_signal, object, row));
    // Whether it was set now or equal before, the stored value is the given one.
    Tallybook::set_key(stored, class_name, object.server_interface.path(),
                       static_cast<unsigned short>(tallybook_caller_id()));
    return stored;
}

void remove_key(const std::string& stored)
{
    Tallybook::remove(stored);
}

} // namespace gantry
