// Values against messages that sd-bus itself filled and reads: each form in both directions, and
// what happens at the edges.
#include "calls.hpp"
#include "peer.hpp"

#include <gmock/gmock.h>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

namespace
{

using sdbusplus::exception::SdBusError;
using sdbusplus::message::message;
using test::Calls;
using test::Message;
using test::Peer;
using testing::ElementsAre;

using Byte = unsigned char;
using Nix = std::tuple<short, int, long>;
using Nested = std::tuple<std::tuple<Byte, std::tuple<unsigned short, unsigned int>>, int,
                          std::tuple<long, unsigned long>>;
using Variant = std::variant<Byte, Nix, std::string>;
using Entries = std::map<std::string, std::variant<short, std::string, Nix>>;

class Codec : public testing::Test
{
  protected:
    template <typename T>
    T read(const Message& m, sdbusplus::SdBusInterface* intf = &sdbusplus::sdbus_impl)
    {
        return message(m.get(), intf).unpack<T>();
    }

    template <typename... Ts>
    Message appended(sdbusplus::SdBusInterface* intf, const Ts&... values)
    {
        auto m = peer.signal();
        message(m.get(), intf).append(values...);
        return Peer::seal(std::move(m));
    }

    // The value is what sd-bus makes of `types` and `args`, read and appended, in blocks or not.
    template <typename T, typename... Args>
    void expect_form(const T& value, const char* types, Args... args)
    {
        SCOPED_TRACE(types);
        EXPECT_STREQ(sdbusplus::message::types::type_id<T>.data(), types);
        const auto filled = peer.sealed(types, args...);
        EXPECT_EQ(read<T>(filled), value);
        Calls by_elements;
        by_elements.blocks = false;
        sd_bus_message_rewind(filled.get(), true);
        EXPECT_EQ(read<T>(filled, &by_elements), value);

        sd_bus_message_rewind(filled.get(), true);
        EXPECT_EQ(test::dump(appended(&sdbusplus::sdbus_impl, value)), test::dump(filled));
    }

    Peer peer;
};

TEST_F(Codec, numbers)
{
    expect_form<Byte>(0xfe, "y", 0xfe);
    expect_form<short>(-2, "n", -2);
    expect_form<unsigned short>(0xfffe, "q", 0xfffe);
    expect_form<int>(-2, "i", -2);
    expect_form<unsigned int>(0xfffffffe, "u", 0xfffffffe);
    expect_form<long>(std::numeric_limits<long>::min(), "x", INT64_MIN);
    expect_form<unsigned long>(std::numeric_limits<unsigned long>::max(), "t", UINT64_MAX);
    expect_form<double>(-0.5, "d", -0.5);
}

TEST_F(Codec, booleans_are_four_bytes_on_the_wire)
{
    expect_form(true, "b", 1);
    expect_form(false, "b", 0);
    expect_form(std::vector<bool>{true, false, true}, "ab", 3, 1, 0, 1);
    expect_form(std::set<bool>{true, false}, "ab", 2, 0, 1);
}

TEST_F(Codec, strings)
{
    expect_form(std::string("text"), "s", "text");
    expect_form(std::string(), "s", "");
    EXPECT_EQ(test::dump(appended(&sdbusplus::sdbus_impl, std::string("cut\0off", 7))),
              test::dump(peer.sealed("s", "cut")));
}

TEST_F(Codec, arrays)
{
    expect_form(std::vector<Byte>{1, 0, 255}, "ay", 3, 1, 0, 255);
    expect_form(std::vector<short>{-1, 2}, "an", 2, -1, 2);
    expect_form(std::vector<double>{0.5, -0.0}, "ad", 2, 0.5, -0.0);
    expect_form(std::vector<unsigned long>{1, 2}, "at", 2, uint64_t{1}, uint64_t{2});
    expect_form(std::vector<std::string>{"b", "", "a"}, "as", 3, "b", "", "a");
    expect_form(std::vector<std::vector<unsigned int>>{{1, 2}, {}, {3}}, "aau", 3, 2, 1, 2, 0, 1,
                3);
    expect_form(std::vector<std::vector<Byte>>{{}, {7}}, "aay", 2, 0, 1, 7);
    expect_form(std::vector<std::set<std::vector<Byte>>>{{{1}, {1, 2}}, {}}, "aaay", 2, 2, 1, 1, 2,
                1, 2, 0);
}

TEST_F(Codec, sets_and_maps_go_out_in_ascending_order)
{
    expect_form(std::set<int>{3, -1, 2}, "ai", 3, -1, 2, 3);
    expect_form(std::set<std::tuple<Byte>>{{200}, {1}}, "a(y)", 2, 1, 200);
    expect_form(std::set<Nix>{{1, 2, 4}, {1, 2, 3}, {0, 9, 9}}, "a(nix)", 3, 0, 9, int64_t{9}, 1, 2,
                int64_t{3}, 1, 2, int64_t{4});
    expect_form(std::map<unsigned short, std::string>{{9, "nine"}, {2, "two"}}, "a{qs}", 2, 2,
                "two", 9, "nine");
    expect_form(std::map<std::string, Nix>{{"b", {1, 2, 3}}, {"B", {4, 5, 6}}}, "a{s(nix)}", 2, "B",
                4, 5, int64_t{6}, "b", 1, 2, int64_t{3});
    expect_form(Entries{{"n", short{-1}}, {"s", "text"}, {"t", Nix{1, 2, 3}}}, "a{sv}", 3, "n", "n",
                -1, "s", "s", "text", "t", "(nix)", 1, 2, int64_t{3});
}

TEST_F(Codec, structs)
{
    expect_form(Nix{-1, -2, -3}, "(nix)", -1, -2, int64_t{-3});
    expect_form(std::tuple<int, long, std::string>{1, 2, "x"}, "(ixs)", 1, int64_t{2}, "x");
    expect_form(std::tuple<std::vector<short>, std::vector<short>, std::vector<std::string>>{{1, 2},
                                                                                             {},
                                                                                             {"x"}},
                "(ananas)", 2, 1, 2, 0, 1, "x");
    expect_form(std::tuple<unsigned short, unsigned int, std::vector<unsigned long>>{1, 2, {3}},
                "(quat)", 1, 2, 1, uint64_t{3});
    expect_form(Nested{{1, {2, 3}}, 4, {5, 6}}, "((y(qu))i(xt))", 1, 2, 3, 4, int64_t{5},
                uint64_t{6});
}

TEST_F(Codec, variants_hold_the_alternative_they_came_with)
{
    expect_form(Variant{Byte{7}}, "v", "y", 7);
    expect_form(Variant{Nix{1, 2, 3}}, "v", "(nix)", 1, 2, int64_t{3});
    expect_form(Variant{"text"}, "v", "s", "text");
}

TEST_F(Codec, empty_containers)
{
    expect_form(std::vector<unsigned long>{}, "at", 0);
    expect_form(std::vector<std::string>{}, "as", 0);
    expect_form(std::set<Nix>{}, "a(nix)", 0);
    expect_form(Entries{}, "a{sv}", 0);

    Calls calls;
    read<std::set<int>>(peer.sealed("ai", 0), &calls);
    appended(&calls, std::set<int>{});
    EXPECT_THAT(calls.made, ElementsAre("enter a i", "at_end", "exit", "open a i", "close"));
}

TEST_F(Codec, of_duplicates_the_first_stays)
{
    EXPECT_EQ(read<std::set<int>>(peer.sealed("ai", 3, 3, 1, 3)), (std::set<int>{1, 3}));
    EXPECT_EQ((read<std::map<unsigned short, std::string>>(
                  peer.sealed("a{qs}", 2, 5, "first", 5, "later"))),
              (std::map<unsigned short, std::string>{{5, "first"}}));
    EXPECT_EQ(read<std::vector<int>>(peer.sealed("ai", 3, 3, 1, 3)), (std::vector<int>{3, 1, 3}));
}

TEST_F(Codec, a_variant_of_no_alternative_counts_as_the_default_and_reading_goes_on)
{
    const auto m = peer.sealed("vs", "i", 5, "behind");
    EXPECT_EQ((message(m.get()).unpack<Variant, std::string>()),
              (std::tuple{Variant{Byte{0}}, std::string("behind")}));

    const auto composite =
        peer.sealed("va{sv}", "a{ss}", 1, "k", "v", 2, "a", "d", 0.5, "b", "s", "x");
    EXPECT_EQ((message(composite.get()).unpack<Variant, Entries>()),
              (std::tuple{Variant{Byte{0}}, Entries{{"a", short{0}}, {"b", "x"}}}));
}

TEST_F(Codec, a_variant_without_a_value_is_refused_before_anything_is_appended)
{
    // The alternative at hand is gone when the next one fails to come up.
    struct Failing
    {
        operator std::string() const
        {
            throw std::length_error("");
        }
    };
    std::variant<Byte, std::tuple<std::string>> valueless;
    EXPECT_THROW(valueless.emplace<1>(Failing{}), std::length_error);
    ASSERT_TRUE(valueless.valueless_by_exception());

    Calls calls;
    try
    {
        appended(&calls, valueless);
        FAIL();
    }
    catch (const std::bad_variant_access& e)
    {
        EXPECT_STREQ(e.what(), "std::visit: variant is valueless");
    }
    EXPECT_TRUE(calls.made.empty());
}

TEST_F(Codec, a_failed_read_touches_no_target)
{
    const auto m = peer.sealed("sas(nu)", "new", 1, "new", 1, 2);
    std::string first = "old";
    std::vector<std::string> second{"old"};
    Nix third{7, 7, 7};
    EXPECT_THROW(message(m.get()).read(first, second, third), SdBusError);
    EXPECT_EQ(first, "old");
    EXPECT_EQ(second, std::vector<std::string>{"old"});
    EXPECT_EQ(third, (Nix{7, 7, 7}));
}

TEST_F(Codec, a_read_replaces_what_its_target_held)
{
    const auto m = peer.sealed("asai", 1, "new", 1, 5);
    std::vector<std::string> first{"old"};
    std::set<int> second{9};
    message(m.get()).read(first, second);
    EXPECT_EQ(first, std::vector<std::string>{"new"});
    EXPECT_EQ(second, std::set<int>{5});
}

TEST_F(Codec, appending_goes_on_whatever_fails)
{
    const Entries value{{"k", Nix{1, 2, 3}}};
    Calls calls;
    appended(&calls, value, true, std::vector<short>{1}, std::vector<std::string>{"x"});
    const auto all = calls.made;
    EXPECT_THAT(all,
                ElementsAre("open a {sv}", "open e sv", "append s", "open v (nix)", "open r nix",
                            "append n", "append i", "append x", "close", "close", "close", "close",
                            "append b", "append_array n", "open a s", "append s", "close"));
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        Calls failing;
        failing.failing = i;
        auto m = peer.signal();
        EXPECT_NO_THROW(
            message(m.get(), &failing)
                .append(value, true, std::vector<short>{1}, std::vector<std::string>{"x"}));
        EXPECT_EQ(failing.made, all);
    }
}

} // namespace
