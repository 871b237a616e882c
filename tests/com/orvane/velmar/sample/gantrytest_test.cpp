// The sample interface's properties, which clients may write: a value of each form there and back,
// and what comes of one that is hostile. The codec's own test has the rules of each form.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/loop.h>

#include "support/client.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using Lines = std::vector<std::string>;

constexpr const char* interface = Gantrytest::interface;
constexpr const char* properties = "org.freedesktop.DBus.Properties";
const support::Object sample{interface, "/com/orvane/velmar/sample/gantrytest"};

class SampleProperties : public testing::Test
{
  protected:
    SampleProperties()
    {
        GANTRY_context_new(&context);
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, nullptr, nullptr, nullptr);
        client.subscribe();
    }

    ~SampleProperties() override
    {
        GANTRY_context_free(&context);
    }

    Gantrytest& object()
    {
        return *static_cast<GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest*>(
            context->tracker.front().object);
    }

    std::string get(const char* member)
    {
        return client.get(sample, interface, member).text;
    }

    // "Member: value" of each change that was announced since the last look.
    Lines announced()
    {
        client.settle(sample.service);
        Lines changes;
        for (const support::Signal& signal : client.signals("PropertiesChanged"))
        {
            for (const auto& [member, value] : signal.changed)
            {
                changes.push_back(member + ": " + value);
            }
        }
        client.clear_signals();
        return changes;
    }

    // A client's write is stored and announced as `stored`; once more, it changes nothing.
    template <typename... Args>
    void expect_written(const char* member, const std::string& stored, const char* type,
                        Args... args)
    {
        for (const std::size_t changes : {1U, 0U})
        {
            EXPECT_EQ(client.set(sample, interface, member, type, args...).text, "") << member;
            EXPECT_EQ(get(member), stored);
            EXPECT_EQ(announced(), Lines(changes, std::string(member) + ": " + stored));
        }
    }

    GANTRY_cpp_context* context = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

TEST_F(SampleProperties, AreWrittenByClients)
{
    expect_written("PropByte", "y 255", "y", 255);
    expect_written("PropBoolean", "b true", "b", 1);
    expect_written("PropBoolean", "b false", "b", 0);
    expect_written("PropInt16", "n -32768", "n", -32768);
    expect_written("PropUInt16", "q 65535", "q", 65535);
    expect_written("PropInt32", "i -2147483648", "i", INT32_MIN);
    expect_written("PropUInt32", "u 4294967295", "u", UINT32_MAX);
    expect_written("PropInt64", "x -9223372036854775808", "x", INT64_MIN);
    expect_written("PropUInt64", "t 18446744073709551615", "t", UINT64_MAX);
    expect_written("PropDouble", "d -0.5", "d", -0.5);
    expect_written("VersionTest", "d 1e+300", "d", 1e300);
    expect_written("PropString", "s \"gr\u00FC\u00DFe\"", "s", "gr\u00FC\u00DFe");
    expect_written("PropArray1", "ay [3, 0, 3]", "ay", 3, 3, 0, 3);
    expect_written("PropNestedArray1", "aay [[], [1, 2], []]", "aay", 3, 0, 2, 1, 2, 0);
    expect_written("PropStruct1", "(nix) (-1, -2, -3)", "(nix)", -1, -2, int64_t{-3});
    expect_written("RecursionTest1", "((y(qu))i(xt)) ((1, (2, 3)), -4, (-5, 6))", "((y(qu))i(xt))",
                   1, 2, 3, -4, int64_t{-5}, uint64_t{6});

    // Sets and maps keep what came first, and go out in ascending order.
    expect_written("PropSet1", "ai [-1, 1, 3]", "ai", 4, 3, 1, 3, -1);
    expect_written("PropNestedSet1", "a(y) [(1), (200)]", "a(y)", 3, 200, 1, 200);
    expect_written("PropNestedSet2", "a(nix) [(-1, 9, 9), (1, 2, 3), (1, 2, 4)]", "a(nix)", 4, 1, 2,
                   int64_t{4}, 1, 2, int64_t{3}, -1, 9, int64_t{9}, 1, 2, int64_t{3});
    expect_written("PropNestedArray2", "aaay [[[], [1], [1, 2]], [[2]]]", "aaay", 2, 4, 2, 1, 2, 1,
                   1, 0, 1, 1, 1, 1, 2);
    expect_written("PropDict1", "a{qs} {2: \"two\", 9: \"nine\"}", "a{qs}", 3, 9, "nine", 2, "two",
                   9, "later");
    expect_written("PropDict2", "a{s(nix)} {\"\": (0, 0, 0), \"B\": (1, 2, 3), \"b\": (4, 5, 6)}",
                   "a{s(nix)}", 4, "b", 4, 5, int64_t{6}, "B", 1, 2, int64_t{3}, "b", 7, 8,
                   int64_t{9}, "", 0, 0, int64_t{0});

    // Nothing is the same alternative with the same value but that. What is no alternative counts
    // as the first of them.
    EXPECT_EQ(client.set(sample, interface, "PropVariant2", "v", "y", 0).text, "");
    EXPECT_EQ(announced(), Lines{});
    expect_written("PropVariant2", "v <s \"\">", "v", "s", "");
    expect_written("PropVariant2", "v <(nix) (1, 2, 3)>", "v", "(nix)", 1, 2, int64_t{3});
    expect_written("PropVariant2", "v <y 0>", "v", "i", 7);
    expect_written("RecursionTest2",
                   "a{sv} {\"\": <s \"text\">, \"alien\": <n 0>, \"n\": <n -1>, \"t\": <(nix) (1, "
                   "2, 3)>, \"twice\": <n 1>}",
                   "a{sv}", 6, "twice", "n", 1, "twice", "s", "later", "t", "(nix)", 1, 2,
                   int64_t{3}, "n", "n", -1, "alien", "a{sv}", 1, "x", "v", "y", 1, "", "s",
                   "text");
}

TEST_F(SampleProperties, RefuseOtherTypesAndOtherBodies)
{
    const auto before = client.get_all(sample, interface);
    const auto expect_refused = [&](const support::Reply& reply, const std::string& what)
    {
        EXPECT_EQ(reply.state, support::Reply::State::error) << what;
        EXPECT_EQ(client.get_all(sample, interface), before) << what;
    };
    for (const auto& [member, value] : before)
    {
        const char* name = member.c_str();
        expect_refused(client.set(sample, interface, name, "o", "/x"), member);
        expect_refused(client.set(sample, interface, name, "aav", 1, 1, "y", 1), member);
        expect_refused(client.call(sample, properties, "Set", "ss", interface, name), member);
        expect_refused(client.call(sample, properties, "Set", "sss", interface, name, "x"), member);
    }
    expect_refused(client.set(sample, interface, "PropInt16", "q", 1), "n as q");
    expect_refused(client.set(sample, interface, "PropNestedArray1", "ay", 1, 1), "aay as ay");
    expect_refused(client.set(sample, interface, "PropDict2", "a{s(nxi)}", 0), "another order");
    expect_refused(client.set(sample, interface, "propByte", "y", 1), "an accessor's name");
    EXPECT_EQ(announced(), Lines{});
}

TEST_F(SampleProperties, TextInsideLeavesAsTheBusTakesIt)
{
    const std::string bad = "N\xE4he";
    const std::string repaired = "\"N\uFFFDhe\"";
    Gantrytest& server = object();
    const auto expect_sent = [&](const char* member, const std::string& value)
    {
        EXPECT_EQ(announced(), Lines{member + (": " + value)});
        EXPECT_EQ(get(member), value);
        EXPECT_EQ(client.get_all(sample, interface).at(member), value);
    };
    server.propDict1({{1, bad}, {2, std::string("a\0b", 3)}});
    expect_sent("PropDict1", "a{qs} {1: " + repaired + ", 2: \"a\"}");
    EXPECT_EQ(server.propDict1().at(1), bad); // stored as it was given

    // Two keys that become one: the first stays.
    server.propDict2({{"a", {0, 0, 0}}, {"k\xFD", {1, 1, 1}}, {"k\xFE", {2, 2, 2}}});
    expect_sent("PropDict2", "a{s(nix)} {\"a\": (0, 0, 0), \"k\uFFFD\": (1, 1, 1)}");
    EXPECT_EQ(server.propDict2().size(), 3);

    server.recursionTest2({{bad, std::string("\xFF")}, {"n", short{1}}});
    expect_sent("RecursionTest2", "a{sv} {" + repaired + ": <s \"\uFFFD\">, \"n\": <n 1>}");
    server.propVariant2(bad);
    expect_sent("PropVariant2", "v <s " + repaired + ">");
    server.propString(bad);
    expect_sent("PropString", "s " + repaired);
}

} // namespace
