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

/** Appends to a message under construction. */
class Writer
{
  public:
    Writer(SdBusInterface* i, sd_bus_message* message) : intf(i), m(message)
    {
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

  private:
    SdBusInterface* intf;
    sd_bus_message* m;
};

template <class T, class = types::if_number<T>>
void append_value(const Writer& to, const T& value)
{
    to.basic(types::type_letter<T>, &value);
}

inline void append_value(const Writer& to, bool value)
{
    const int wide = value;
    to.basic(SD_BUS_TYPE_BOOLEAN, &wide);
}

// A D-Bus string can't contain a zero byte, so the text ends at the first one.
inline void append_value(const Writer& to, const std::string& value)
{
    to.basic(SD_BUS_TYPE_STRING, value.c_str());
}

template <class T>
void append_value(const Writer& to, const std::vector<T>& value);
template <class T>
void append_value(const Writer& to, const std::set<T>& value);
template <class K, class V>
void append_value(const Writer& to, const std::map<K, V>& value);
template <class... Ts>
void append_value(const Writer& to, const std::tuple<Ts...>& value);
template <class... Ts>
void append_value(const Writer& to, const std::variant<Ts...>& value);

template <class K, class V>
void append_value(const Writer& to, const std::pair<const K, V>& entry)
{
    to.open(SD_BUS_TYPE_DICT_ENTRY, types::type_id<K, V>.data());
    append_value(to, entry.first);
    append_value(to, entry.second);
    to.close();
}

template <class Elements>
void append_array(const Writer& to, const Elements& elements)
{
    to.open(SD_BUS_TYPE_ARRAY, types::type_id<typename Elements::value_type>.data());
    for (const typename Elements::value_type& element : elements)
    {
        append_value(to, element);
    }
    to.close();
}

template <class T>
void append_value(const Writer& to, const std::vector<T>& value)
{
    append_array(to, value);
}

template <class T>
void append_value(const Writer& to, const std::set<T>& value)
{
    append_array(to, value);
}

template <class K, class V>
void append_value(const Writer& to, const std::map<K, V>& value)
{
    append_array(to, value);
}

template <class... Ts>
void append_value(const Writer& to, const std::tuple<Ts...>& value)
{
    to.open(SD_BUS_TYPE_STRUCT, types::type_id<Ts...>.data());
    std::apply([&](const Ts&... members) { (append_value(to, members), ...); }, value);
    to.close();
}

template <class... Ts>
void append_value(const Writer& to, const std::variant<Ts...>& value)
{
    std::visit(
        [&]<class T>(const T& alternative)
        {
            to.open(SD_BUS_TYPE_VARIANT, types::type_id<T>.data());
            append_value(to, alternative);
            to.close();
        },
        value);
}

} // namespace details

/**
 * Appends the values to `m` in order. For a variant without a value it appends nothing and throws
 * std::bad_variant_access.
 */
template <class... Ts>
void append(SdBusInterface* intf, sd_bus_message* m, const Ts&... values)
{
    const details::Writer to(intf, m);
    (details::append_value(to, values), ...);
}

} // namespace message
} // namespace sdbusplus
