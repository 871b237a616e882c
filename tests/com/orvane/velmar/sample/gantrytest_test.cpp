// The sample interface's properties, which clients may write: a value of each form there and back,
// and what comes of one that is hostile.
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <com/orvane/velmar/sample/gantrytest/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/loop.h>

#include "subprojects/sdbusplus/peer.hpp"
#include "support/client.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::sample::Gantrytest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Byte = unsigned char;
using Triple = std::tuple<short, int, long>;

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
    std::vector<std::string> announced()
    {
        client.settle(sample.service);
        std::vector<std::string> changes;
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
            EXPECT_EQ(announced(),
                      std::vector<std::string>(changes, std::string(member) + ": " + stored));
        }
    }

    GANTRY_cpp_context* context = nullptr;
    const support::Client::Pump pump = [this] { GANTRY_dbus_loop_one_pass(context); };
    support::Client client{pump};
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
    EXPECT_EQ(get("PropDouble"), "d -0.5");
    expect_written("PropString", "s \"gr\u00FC\u00DFe\"", "s", "gr\u00FC\u00DFe");
    expect_written("PropArray1", "ay [3, 0, 3]", "ay", 3, 3, 0, 3);
    expect_written("PropNestedArray1", "aay [[], [1, 2], []]", "aay", 3, 0, 2, 1, 2, 0);
    expect_written("PropStruct1", "(nix) (-1, -2, -3)", "(nix)", -1, -2, int64_t{-3});
    expect_written("RecursionTest1", "((y(qu))i(xt)) ((1, (2, 3)), -4, (-5, 6))", "((y(qu))i(xt))",
                   1, 2, 3, -4, int64_t{-5}, uint64_t{6});
}

// Sets and maps keep what came first, and go out in ascending order.
TEST_F(SampleProperties, SetsAndMapsAreSortedAndHaveNothingTwice)
{
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

    object().propNestedSet2({{1, 2, 4}, {-1, 9, 9}, {1, 2, 3}});
    EXPECT_THAT(announced(), IsEmpty());
}

TEST_F(SampleProperties, VariantsKeepTheirAlternativeOrFallBackToTheFirst)
{
    // Nothing is the same alternative with the same value but that.
    EXPECT_EQ(client.set(sample, interface, "PropVariant2", "v", "y", 0).text, "");
    EXPECT_THAT(announced(), IsEmpty());
    expect_written("PropVariant2", "v <s \"\">", "v", "s", "");
    expect_written("PropVariant2", "v <(nix) (1, 2, 3)>", "v", "(nix)", 1, 2, int64_t{3});
    expect_written("PropVariant2", "v <y 0>", "v", "i", 7);
    expect_written("PropVariant2", "v <y 7>", "v", "y", 7);
    expect_written("PropVariant2", "v <y 0>", "v", "v", "s", "text"); // no alternative either

    expect_written("RecursionTest2",
                   "a{sv} {\"\": <s \"text\">, \"alien\": <n 0>, \"n\": <n -1>, \"t\": <(nix) (1, "
                   "2, 3)>, \"twice\": <n 1>}",
                   "a{sv}", 6, "twice", "n", 1, "twice", "s", "later", "t", "(nix)", 1, 2,
                   int64_t{3}, "n", "n", -1, "alien", "a{sv}", 1, "x", "v", "y", 1, "", "s",
                   "text");
}

TEST_F(SampleProperties, EmptyAndHugeArraysAreValues)
{
    object().propArray1({1}, true);
    object().propSet1({1}, true);
    object().propDict1({{1, "x"}}, true);
    object().recursionTest2({{"x", short{1}}}, true);
    expect_written("PropArray1", "ay []", "ay", 0);
    expect_written("PropSet1", "ai []", "ai", 0);
    expect_written("PropDict1", "a{qs} {}", "a{qs}", 0);
    expect_written("RecursionTest2", "a{sv} {}", "a{sv}", 0);

    constexpr std::size_t megabyte = 1U << 20U;
    support::Client silent{pump}; // who isn't told of changes, and so needn't render them
    const auto write = [&](const char* member, const char* type, const auto& append)
    {
        support::Message call = silent.new_call(sample, properties, "Set");
        sd_bus_message_append(call.get(), "ss", interface, member);
        sd_bus_message_open_container(call.get(), 'v', type);
        append(call.get());
        sd_bus_message_close_container(call.get());
        EXPECT_EQ(silent.wait(silent.start(std::move(call))).text, "") << member;
    };
    const std::vector<Byte> bytes(megabyte, 7);
    write("PropArray1", "ay",
          [&](sd_bus_message* call)
          { sd_bus_message_append_array(call, 'y', bytes.data(), bytes.size()); });
    EXPECT_EQ(object().propArray1(), bytes);
    const std::vector<int> ones(megabyte / sizeof(int), 1);
    write("PropSet1", "ai",
          [&](sd_bus_message* call)
          { sd_bus_message_append_array(call, 'i', ones.data(), megabyte); });
    EXPECT_EQ(object().propSet1(), std::set<int>{1});
    write("PropDict1", "a{qs}",
          [&](sd_bus_message* call)
          {
              sd_bus_message_open_container(call, 'a', "{qs}");
              for (std::size_t entry = 0; entry < megabyte / 16; ++entry)
              {
                  sd_bus_message_append(call, "{qs}", 1, entry == 0 ? "first" : "later");
              }
              sd_bus_message_close_container(call);
          });
    EXPECT_EQ(object().propDict1(), (std::map<unsigned short, std::string>{{1, "first"}}));
    write("PropString", "s",
          [&](sd_bus_message* call)
          { sd_bus_message_append(call, "s", std::string(megabyte, 'x').c_str()); });
    EXPECT_EQ(object().propString().size(), megabyte);
}

// A read of a value that is nested this deep, or that sd-bus passes over.
TEST_F(SampleProperties, DeepValuesArePassedOver)
{
    object().propVariant2("text", true);
    const auto nested = [&](const char* member, const char* type, int levels)
    {
        support::Message call = client.new_call(sample, properties, "Set");
        sd_bus_message_append(call.get(), "ss", interface, member);
        sd_bus_message_open_container(call.get(), 'v', type);
        const bool entries = *type == 'a';
        if (entries)
        {
            sd_bus_message_open_container(call.get(), 'a', "{sv}");
            sd_bus_message_open_container(call.get(), 'e', "sv");
            sd_bus_message_append(call.get(), "s", "deep");
        }
        for (int level = 0; level < levels; ++level)
        {
            sd_bus_message_open_container(call.get(), 'v', level + 1 < levels ? "v" : "y");
        }
        sd_bus_message_append(call.get(), "y", 1);
        for (int open = levels + (entries ? 2 : 0) + 1; open > 0; --open)
        {
            sd_bus_message_close_container(call.get());
        }
        return client.wait(client.start(std::move(call))).text;
    };
    EXPECT_EQ(nested("PropVariant2", "v", 60), "");
    EXPECT_EQ(get("PropVariant2"), "v <y 0>");
    EXPECT_EQ(nested("RecursionTest2", "a{sv}", 60), "");
    EXPECT_EQ(get("RecursionTest2"), "a{sv} {\"deep\": <n 0>}");
}

// A row of the interface's table that clients may write.
struct Row
{
    std::string member;
    std::string signature;
    sd_bus_property_set_t set;
};

std::vector<Row> writable_rows()
{
    std::vector<Row> rows;
    for (const auto* row = Gantrytest::_vtable; row->type != _SD_BUS_VTABLE_END; ++row)
    {
        if (row->type == _SD_BUS_VTABLE_WRITABLE_PROPERTY)
        {
            rows.push_back(
                {row->x.property.member, row->x.property.signature, row->x.property.set});
        }
    }
    return rows;
}

TEST_F(SampleProperties, RefuseOtherTypesAndOtherBodies)
{
    const auto before = client.get_all(sample, interface);
    const auto expect_refused = [&](const support::Reply& reply, const std::string& what)
    {
        EXPECT_THAT(reply.text, StartsWith("error ")) << what;
        EXPECT_EQ(client.get_all(sample, interface), before) << what;
    };
    const auto rows = writable_rows();
    ASSERT_EQ(rows.size(), 23);
    for (const auto& [member, signature, set] : rows)
    {
        const char* name = member.c_str();
        expect_refused(client.set(sample, interface, name, "o", "/x"), member);
        expect_refused(client.set(sample, interface, name, "(s)", "x"), member);
        expect_refused(client.set(sample, interface, name, "aav", 1, 1, "y", 1), member);
        expect_refused(client.call(sample, properties, "Set", "ss", interface, name), member);
        expect_refused(client.call(sample, properties, "Set", "sss", interface, name, "x"), member);
    }
    expect_refused(client.set(sample, interface, "PropInt16", "q", 1), "n as q");
    expect_refused(client.set(sample, interface, "PropNestedArray1", "ay", 1, 1), "aay as ay");
    expect_refused(client.set(sample, interface, "PropDict2", "a{s(nxi)}", 0), "another order");
    expect_refused(client.set(sample, interface, "propByte", "y", 1), "an accessor's name");
    EXPECT_THAT(announced(), IsEmpty());
}

// sd-bus compares signatures before it calls, and a bus checks bodies. One that does neither is met
// by the read itself: it names the call that failed.
TEST_F(SampleProperties, NameTheCallThatFailed)
{
    constexpr const char* number = "sd_bus_message_read_basic fundamental: ";
    constexpr const char* vector = "sd_bus_message_enter_container emplace_back_container: ";
    constexpr const char* set_or_map = "sd_bus_message_enter_container emplace_container: ";
    constexpr const char* tuple = "sd_bus_message_enter_container tuple: ";
    const std::map<std::string, const char*> refusals{
        {"PropBoolean", "sd_bus_message_read_basic bool: "},
        {"PropString", "sd_bus_message_read_basic string: "},
        {"PropArray1", vector},
        {"PropNestedArray1", vector},
        {"PropNestedArray2", vector},
        {"PropDict1", set_or_map},
        {"PropDict2", set_or_map},
        {"PropSet1", set_or_map},
        {"PropNestedSet1", set_or_map},
        {"PropNestedSet2", set_or_map},
        {"PropStruct1", tuple},
        {"PropVariant2", "sd_bus_message_skip variant: "},
        {"RecursionTest1", tuple},
        {"RecursionTest2", set_or_map},
    };
    const auto before = client.get_all(sample, interface);
    const test::Peer peer;
    for (const auto& [member, signature, set] : writable_rows())
    {
        const test::Message message = peer.sealed("o", "/alien");
        sd_bus_error error{};
        EXPECT_LT(set(peer.get(), sample.path.c_str(), interface, member.c_str(), message.get(),
                      &object(), &error),
                  0)
            << member;
        const auto refusal = refusals.find(member);
        EXPECT_THAT(error.message, StartsWith(refusal == refusals.end() ? number : refusal->second))
            << member;
        EXPECT_THAT(error.name, HasSubstr(".")) << member;
        sd_bus_error_free(&error);
    }
    EXPECT_EQ(client.get_all(sample, interface), before);
    EXPECT_THAT(announced(), IsEmpty());
}

// Bodies that are none, of the right signature, of either byte order.
TEST_F(SampleProperties, SurviveBodiesThatBreakTheRules)
{
    const std::string long_count = test::Bytes(false).number(0x7fff'ffff, 4).get();
    const std::string odd_count = test::Bytes(false).number(5, 4).number(1, 8).get();
    for (const auto& [member, signature, set] : writable_rows())
    {
        for (const bool big_endian : {false, true})
        {
            for (const std::string& body :
                 {std::string(), std::string(64, '\xFF'), std::string(3, '\1'), long_count,
                  odd_count, std::string("\1g\0alien", 8)})
            {
                test::Peer peer;
                const test::Message message = peer.receive(big_endian, signature, body);
                const std::string before = get(member.c_str());
                sd_bus_error error{};
                const int result = set(peer.get(), sample.path.c_str(), interface, member.c_str(),
                                       message.get(), &object(), &error);
                const bool refused = result < 0;
                EXPECT_EQ(refused, sd_bus_error_is_set(&error) != 0) << member;
                if (refused)
                {
                    EXPECT_THAT(error.message, StartsWith("sd_bus_message_")) << member;
                    EXPECT_EQ(get(member.c_str()), before);
                }
                // Numbers and an array of a length in range apart, nothing of this can be read.
                EXPECT_TRUE(refused || signature.size() <= 2 || signature == "(nix)" ||
                            signature == "((y(qu))i(xt))")
                    << member << ' ' << testing::PrintToString(body) << get(member.c_str());
                sd_bus_error_free(&error);
            }
        }
    }
    announced();
}

TEST_F(SampleProperties, TextInsideLeavesAsTheBusTakesIt)
{
    const std::string bad = "N\xE4he";
    const std::string repaired = "\"N\uFFFDhe\"";
    Gantrytest& server = object();
    const auto expect_sent = [&](const char* member, const std::string& value)
    {
        EXPECT_THAT(announced(), ElementsAre(member + (": " + value)));
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
