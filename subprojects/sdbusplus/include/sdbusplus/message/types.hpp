// Each C++ type that a message can carry has one D-Bus signature, which the compiler assembles from
// the declared type alone. Nothing is computed when a message is read or filled.
#pragma once

#include "sdbusplus/sdbus.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

namespace sdbusplus
{
namespace message
{
namespace types
{
namespace details
{

static_assert(sizeof(int) == 4 && sizeof(long) == 8, "int is D-Bus's int32 and long its int64");

/** Joins pieces of a signature, without a terminating zero. */
template <std::size_t... sizes>
constexpr auto join(const std::array<char, sizes>&... pieces)
{
    std::array<char, (sizes + ... + 0)> joined{};
    auto at = joined.begin();
    ((at = std::copy(pieces.begin(), pieces.end(), at)), ...);
    return joined;
}

/** The signature of one type; a type without a D-Bus form doesn't compile. */
template <class T>
struct signature;

template <char c>
struct letter
{
    static constexpr std::array<char, 1> value{c};
};

/** The signatures of several types, in order. */
template <class... Ts>
constexpr auto contents = join(signature<Ts>::value...);

// clang-format off
template <> struct signature<unsigned char> : letter<'y'> {};
template <> struct signature<bool> : letter<'b'> {};
template <> struct signature<short> : letter<'n'> {};
template <> struct signature<unsigned short> : letter<'q'> {};
template <> struct signature<int> : letter<'i'> {};
template <> struct signature<unsigned int> : letter<'u'> {};
template <> struct signature<long> : letter<'x'> {};
template <> struct signature<unsigned long> : letter<'t'> {};
template <> struct signature<double> : letter<'d'> {};
template <> struct signature<std::string> : letter<'s'> {};
template <class... Ts> struct signature<std::variant<Ts...>> : letter<'v'> {};
// clang-format on

template <class T>
struct signature<std::vector<T>>
{
    static constexpr auto value = join(letter<'a'>::value, signature<T>::value);
};

template <class T>
struct signature<std::set<T>> : signature<std::vector<T>>
{
};

template <class... Ts>
struct signature<std::tuple<Ts...>>
{
    static constexpr auto value = join(letter<'('>::value, contents<Ts...>, letter<')'>::value);
};

template <class K, class V>
struct signature<std::pair<const K, V>>
{
    static constexpr auto value = join(letter<'{'>::value, contents<K, V>, letter<'}'>::value);
};

template <class K, class V>
struct signature<std::map<K, V>> : signature<std::vector<std::pair<const K, V>>>
{
};

} // namespace details

/**
 * The joined signature of the types, zero-terminated: type_id<short, bool>.data() is "nb". It
 * exists once per list of types.
 */
template <class... Ts>
inline constexpr auto type_id = details::join(details::contents<Ts...>, std::array<char, 1>{'\0'});

/** The letter of a type whose signature is one letter. */
template <class T>
inline constexpr char type_letter = details::signature<T>::value.front();

/**
 * Exists only for a number whose form in memory is its form in a message. A bool isn't one: it has
 * one byte in memory and four in a message. This is no concept, so that a compiler that lacks C++20
 * reports the #error of sdbus.hpp.
 */
template <class T>
using if_number = std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool>>;

} // namespace types
} // namespace message
} // namespace sdbusplus
