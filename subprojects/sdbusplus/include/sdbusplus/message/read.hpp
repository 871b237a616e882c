// Reading walks through the message once, guided by the C++ type that is filled. The first sd-bus
// call that fails ends the walk with an SdBusError that names the call. The templates only order
// the steps; each step is a plain function.
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

/** A kind of container: its sd-bus type, and the names of its calls in errors. */
struct Container
{
    char type;
    const char* enter;
    const char* at_end;
    const char* exit;
};

extern const Container vector_container;
extern const Container set_container; // also std::map: both keep the first of equal elements
extern const Container tuple_container;
extern const Container pair_container;
extern const Container variant_container;

/** Reads the next value of a message. sd-bus keeps the position inside the message. */
class Reader
{
  public:
    Reader(SdBusInterface* i, sd_bus_message* message) : intf(i), m(message)
    {
    }

    void number(char type, void* value) const;
    bool boolean() const;

    /** The text is part of the message, and valid as long as the message. */
    const char* string() const;

    void enter(const Container& container, const char* contents) const;
    bool at_end(const Container& container) const;
    void exit(const Container& container) const;

    /** Whether the next value is a variant with exactly these contents. */
    bool is_variant(const char* contents) const;
    void skip_variant() const;

  private:
    SdBusInterface* intf;
    sd_bus_message* m;
};

// The value that each function fills is fresh: zero, empty, or a variant's default.

template <class T, class = types::if_number<T>>
void read_value(const Reader& from, T& value)
{
    from.number(types::type_letter<T>, &value);
}

inline void read_value(const Reader& from, bool& value)
{
    value = from.boolean();
}

/** Not inline, since each object file would have its own copy of what std::string does here. */
void read_value(const Reader& from, std::string& value);

template <class T>
void read_value(const Reader& from, std::vector<T>& value);
template <class T>
void read_value(const Reader& from, std::set<T>& value);
template <class K, class V>
void read_value(const Reader& from, std::map<K, V>& value);
template <class... Ts>
void read_value(const Reader& from, std::tuple<Ts...>& value);
template <class... Ts>
void read_value(const Reader& from, std::variant<Ts...>& value);

/** Enters an array, calls `element` once per element, and exits it. */
template <class Element>
void read_array(const Reader& from, const Container& container, const char* contents,
                const Element& element)
{
    from.enter(container, contents);
    while (!from.at_end(container))
    {
        element();
    }
    from.exit(container);
}

template <class T>
void read_value(const Reader& from, std::vector<T>& value)
{
    read_array(from, vector_container, types::type_id<T>.data(),
               [&]
               {
                   if constexpr (std::is_same_v<T, bool>)
                   {
                       value.push_back(from.boolean());
                   }
                   else
                   {
                       read_value(from, value.emplace_back());
                   }
               });
}

template <class T>
void read_value(const Reader& from, std::set<T>& value)
{
    read_array(from, set_container, types::type_id<T>.data(),
               [&]
               {
                   T element{};
                   read_value(from, element);
                   value.insert(std::move(element));
               });
}

template <class K, class V>
void read_value(const Reader& from, std::map<K, V>& value)
{
    read_array(from, set_container, types::type_id<std::pair<const K, V>>.data(),
               [&]
               {
                   from.enter(pair_container, types::type_id<K, V>.data());
                   K key{};
                   read_value(from, key);
                   V mapped{};
                   read_value(from, mapped);
                   from.exit(pair_container);
                   value.try_emplace(std::move(key), std::move(mapped));
               });
}

template <class... Ts>
void read_value(const Reader& from, std::tuple<Ts...>& value)
{
    from.enter(tuple_container, types::type_id<Ts...>.data());
    std::apply([&](Ts&... members) { (read_value(from, members), ...); }, value);
    from.exit(tuple_container);
}

/** Reads the alternative T if the variant holds one. */
template <class T, class Variant>
bool read_alternative(const Reader& from, Variant& value)
{
    constexpr const char* contents = types::type_id<T>.data();
    if (!from.is_variant(contents))
    {
        return false;
    }
    from.enter(variant_container, contents);
    T alternative{};
    read_value(from, alternative);
    value = std::move(alternative);
    from.exit(variant_container);
    return true;
}

template <class... Ts>
void read_value(const Reader& from, std::variant<Ts...>& value)
{
    // Contents that match no alternative are skipped and read as the default.
    if (!(read_alternative<Ts>(from, value) || ...))
    {
        from.skip_variant();
        value = std::variant<Ts...>{};
    }
}

} // namespace details

/**
 * Reads the next values of `m` and returns them. Throws SdBusError naming the first call that
 * failed; the read position stays where that call left it.
 */
template <class... Ts>
std::tuple<Ts...> read_values(SdBusInterface* intf, sd_bus_message* m)
{
    std::tuple<Ts...> values{};
    const details::Reader from(intf, m);
    std::apply([&](Ts&... each) { (details::read_value(from, each), ...); }, values);
    return values;
}

} // namespace message
} // namespace sdbusplus
