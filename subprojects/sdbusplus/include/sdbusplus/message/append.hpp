// Appending mirrors reading, except that the calls' results are ignored: if a value can't be
// appended, sd-bus refuses to send the message.
#pragma once

#include "sdbusplus/message/types.hpp"
#include "sdbusplus/sdbus.hpp"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace sdbusplus
{
namespace message
{
namespace details
{

/** Appends values to a message under construction. */
class Writer
{
  public:
    Writer(SdBusInterface* i, sd_bus_message* message) : intf(i), m(message)
    {
    }

    template <class T, class = types::if_number<T>>
    void append(const T& value) const
    {
        basic(types::type_letter<T>, &value);
    }

    void append(bool value) const
    {
        const int wide = value;
        basic(SD_BUS_TYPE_BOOLEAN, &wide);
    }

    // A D-Bus string can't contain a zero byte, so the text ends at the first one.
    void append(const std::string& value) const
    {
        basic(SD_BUS_TYPE_STRING, value.c_str());
    }

    template <class T>
    void append(const std::vector<T>& value) const
    {
        append_array(value);
    }

    template <class T>
    void append(const std::set<T>& value) const
    {
        append_array(value);
    }

    template <class K, class V>
    void append(const std::map<K, V>& value) const
    {
        append_array(value);
    }

    template <class K, class V>
    void append(const std::pair<const K, V>& entry) const
    {
        open(SD_BUS_TYPE_DICT_ENTRY, types::type_id<K, V>.data());
        append(entry.first);
        append(entry.second);
        close();
    }

    template <class... Ts>
    void append(const std::tuple<Ts...>& value) const
    {
        open(SD_BUS_TYPE_STRUCT, types::type_id<Ts...>.data());
        std::apply([this](const Ts&... members) { (this->append(members), ...); }, value);
        close();
    }

    template <class... Ts>
    void append(const std::variant<Ts...>& value) const
    {
        std::visit(
            [this]<class T>(const T& alternative)
            {
                open(SD_BUS_TYPE_VARIANT, types::type_id<T>.data());
                this->append(alternative);
                close();
            },
            value);
    }

  private:
    template <class Elements>
    void append_array(const Elements& elements) const
    {
        open(SD_BUS_TYPE_ARRAY, types::type_id<typename Elements::value_type>.data());
        for (const typename Elements::value_type& element : elements)
        {
            append(element);
        }
        close();
    }

    void basic(char type, const void* value) const
    {
        intf->sd_bus_message_append_basic(m, type, value);
    }

    void open(char type, const char* contents) const
    {
        intf->sd_bus_message_open_container(m, type, contents);
    }

    void close() const
    {
        intf->sd_bus_message_close_container(m);
    }

    SdBusInterface* intf;
    sd_bus_message* m;
};

} // namespace details

/**
 * Appends the values to `m` in order. For a variant without a value it appends nothing and throws
 * std::bad_variant_access.
 */
template <class... Ts>
void append(SdBusInterface* intf, sd_bus_message* m, const Ts&... values)
{
    const details::Writer to(intf, m);
    (to.append(values), ...);
}

} // namespace message
} // namespace sdbusplus
