// The index that finds a property by its name, over rows of the test's own.
#include "properties.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

namespace
{

struct Server
{
    int number() const
    {
        return 0;
    }
    int number(int value, bool /*skip_signal*/)
    {
        return value;
    }
};

constexpr gantry::Property<Server> row(const char* name)
{
    return {name, &Server::number, &Server::number};
}

// Names that differ in the middle alone have one hash, and one run of slots.
constexpr gantry::Property<Server> rows[] = {
    row("Received1TotalPackets"), row("a"), row("Received2TotalPackets"),
    row("Received3TotalPackets"), row("A"), row("aa"),
    row("Received4TotalPackets"),
};
constexpr gantry::PropertyIndex index{rows};

TEST(Properties, AreFoundWhateverTheirHash)
{
    ASSERT_EQ(gantry::name_hash(rows[0].member), gantry::name_hash(rows[2].member));
    const gantry::Properties properties = index;
    const auto find = [&](std::string_view name)
    { return static_cast<const void*>(properties.find(name)); };
    for (const auto& each : rows)
    {
        EXPECT_EQ(find(each.member), &each) << each.member;
    }
    for (const std::string_view name :
         {"", "b", "aaa", "Received5TotalPackets", "Received1TotalPacket", "received1TotalPackets",
          "Received1TotalPackets "})
    {
        EXPECT_EQ(find(name), nullptr) << name;
    }
    EXPECT_EQ(find({"a\0", 2}), nullptr);
    EXPECT_EQ(find(std::string(256 + 1, 'a')), nullptr); // a length that ends in the byte of "a"'s
}

// The compiler fills the index, and the library looks names up in it: each by a way of its own.
TEST(Properties, HaveTheHashOfTheIndexAtRunTime)
{
    static constexpr std::string_view name = "\xFF_LaneRx1PowerHighAlarm";
    constexpr auto hashes = []<std::size_t... lengths>(std::index_sequence<lengths...>)
    {
        return std::array{gantry::name_hash(name.substr(0, lengths))...};
    }
    (std::make_index_sequence<name.size() + 1>{});
    for (std::size_t length = 0; length < hashes.size(); ++length)
    {
        // A copy of just that size, so that valgrind sees a read beyond it.
        const auto copy = std::make_unique<char[]>(length);
        std::ranges::copy(name.substr(0, length), copy.get());
        EXPECT_EQ(gantry::name_hash({copy.get(), length}), hashes[length]) << length;
    }
}

} // namespace
