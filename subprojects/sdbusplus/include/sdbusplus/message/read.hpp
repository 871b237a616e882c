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

/** Reads the next value of a message into one that is fresh: zero, empty, or a variant's default.
 *  sd-bus keeps the position inside the message. */
class Reader
{
  public:
    Reader(SdBusInterface* i, sd_bus_message* message) : intf(i), m(message)
    {
    }

    template <class T, class = types::if_number<T>>
    void read(T& value) const
    {
        number(types::type_letter<T>, &value);
    }

    void read(bool& value) const;

    /** Not inline, since each object file would have its own copy of what std::string does here. */
    void read(std::string& value) const;

    template <class T>
    void read(std::vector<T>& value) const
    {
        read_array(vector_container, types::type_id<T>.data(),
                   [&]
                   {
                       if constexpr (std::is_same_v<T, bool>)
                       {
                           bool element = false;
                           read(element);
                           value.push_back(element);
                       }
                       else
                       {
                           read(value.emplace_back());
                       }
                   });
    }

    template <class T>
    void read(std::set<T>& value) const
    {
        read_array(set_container, types::type_id<T>.data(),
                   [&]
                   {
                       T element{};
                       read(element);
                       value.insert(std::move(element));
                   });
    }

    template <class K, class V>
    void read(std::map<K, V>& value) const
    {
        read_array(set_container, types::type_id<std::pair<const K, V>>.data(),
                   [&]
                   {
                       enter(pair_container, types::type_id<K, V>.data());
                       K key{};
                       read(key);
                       V mapped{};
                       read(mapped);
                       exit(pair_container);
                       value.try_emplace(std::move(key), std::move(mapped));
                   });
    }

    template <class... Ts>
    void read(std::tuple<Ts...>& value) const
    {
        enter(tuple_container, types::type_id<Ts...>.data());
        std::apply([this](Ts&... members) { (this->read(members), ...); }, value);
        exit(tuple_container);
    }

    template <class... Ts>
    void read(std::variant<Ts...>& value) const
    {
        // Contents that match no alternative are skipped and read as the default.
        if (!(read_alternative<Ts>(value) || ...))
        {
            skip_variant();
            value = std::variant<Ts...>{};
        }
    }

  private:
    /** Enters an array, calls `element` once per element, and exits it. */
    template <class Element>
    void read_array(const Container& container, const char* contents, const Element& element) const
    {
        enter(container, contents);
        while (!at_end(container))
        {
            element();
        }
        exit(container);
    }

    /** Reads the alternative T if the variant holds one. */
    template <class T, class Variant>
    bool read_alternative(Variant& value) const
    {
        constexpr const char* contents = types::type_id<T>.data();
        if (!is_variant(contents))
        {
            return false;
        }
        enter(variant_container, contents);
        T alternative{};
        read(alternative);
        value = std::move(alternative);
        exit(variant_container);
        return true;
    }

    void number(char type, void* value) const;
    void enter(const Container& container, const char* contents) const;
    bool at_end(const Container& container) const;
    void exit(const Container& container) const;

    /** Whether the next value is a variant with exactly these contents. */
    bool is_variant(const char* contents) const;
    void skip_variant() const;

    SdBusInterface* intf;
    sd_bus_message* m;
};

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
    std::apply([&](Ts&... each) { (from.read(each), ...); }, values);
    return values;
}

} // namespace message
} // namespace sdbusplus
