// The examples in C, as programs of their own on the bus: every form of a value there and back
// through both shapes of method, and every signal, out and in.
#include <climits>
#include <cmath>
#include <cstdint>
#include <string>

#include <gmock/gmock.h>

#include "support/client.hpp"
#include "support/program.hpp"

namespace
{

using support::Client;
using support::Object;
using support::Program;

constexpr const char* gantrytest = "com.orvane.velmar.sample.gantrytest";
constexpr const char* async = "com.orvane.velmar.sample.async";
constexpr const char* hw_inventory = "com.orvane.velmar.HWInventory";

class SampleHost : public testing::Test
{
  protected:
    SampleHost()
    {
        // In the order of their instantiation: the second answers once both are there.
        client.wait_for([this] { return client.name_has_owner("com.orvane.velmar.sample"); });
        client.wait_for([this] { return client.call(other, async, "NoParam").ok(); });
        client.subscribe();
    }

    template <class... Args>
    std::string call(const std::string& method, const char* types = "", Args... args)
    {
        return client.call(object, gantrytest, method.c_str(), types, args...).text;
    }

    // A method gives back what it is given, and so does its twin.
    template <class... Args>
    void expect_back(const std::string& method, const std::string& reply, const char* types,
                     Args... args)
    {
        const std::string twin = method + (method.starts_with("Try_") ? "_D" : "D");
        EXPECT_EQ(call(method, types, args...), reply) << method;
        EXPECT_EQ(call(twin, types, args...), reply) << twin;
    }

    // Text, and which signals had arrived by then.
    std::string with_signals(const std::string& text)
    {
        std::string all;
        for (const auto& signal : client.signals())
        {
            all += signal.path + ' ' + signal.member + ' ' + signal.body + '\n';
        }
        client.clear_signals();
        return all + text;
    }

    Program program{SAMPLE_HOST};
    Client client;
    Object object{"com.orvane.velmar.sample", "/com/orvane/velmar/sample/gantrytest"};
    Object other{"com.orvane.velmar.sample", "/com/orvane/velmar/sample/async"};
};

TEST_F(SampleHost, GivesBackEveryFormThroughBothShapes)
{
    expect_back("Try_byte", "y 255", "y", UCHAR_MAX);
    expect_back("Try_boolean", "b true", "b", 1);
    expect_back("Try_int16", "n -32768", "n", SHRT_MIN);
    expect_back("Try_uint16", "q 65535", "q", USHRT_MAX);
    expect_back("Try_int32", "i -2147483648", "i", INT_MIN);
    expect_back("Try_uint32", "u 4294967295", "u", UINT_MAX);
    expect_back("Try_int64", "x -9223372036854775808", "x", INT64_MIN);
    expect_back("Try_uint64", "t 18446744073709551615", "t", UINT64_MAX);
    expect_back("Try_double", "d -inf", "d", -HUGE_VAL);
    const std::string long_text(100'000, 'x');
    expect_back("Try_string", "s \"" + long_text + '"', "s", long_text.c_str());
    expect_back("Try_array", "ay [0, 255, 0]", "ay", 3, 0, 255, 0);
    expect_back("TryArrayString", "as [\"\", \"b\", \"a\", \"b\"]", "as", 4, "", "b", "a", "b");
    expect_back("TryArrayArray", "aau [[1, 2], [], [4294967295]]", "aau", 3, 2, 1, 2, 0, 1,
                UINT_MAX);
    expect_back("TrySet", "an [-32768, -1, 3, 7]", "an", 6, 7, 3, -1, 3, SHRT_MIN, 7);
    expect_back("TryStruct", "(ixs) (-2147483648, -9223372036854775808, \"text\")", "(ixs)",
                INT_MIN, INT64_MIN, "text");
    expect_back("TryStructArray", "(ananas) ([2, 1, 2], [], [\"\", \"a\"])", "(ananas)", 3, 2, 1, 2,
                0, 2, "", "a");
    expect_back("TupleOne", "q 1", "");
    expect_back("TupleTwo", "qu 1, 2", "");
    expect_back("TupleThree", "qut 1, 2, 3", "");
}

TEST_F(SampleHost, SendsSignalsAheadOfTheReply)
{
    const std::string path = object.path;
    int changes = 0;
    EXPECT_EQ(call("GetString"), "s \"\"");
    for (const std::string shape : {"", "Deferred"})
    {
        const std::string text = "text" + shape;
        EXPECT_EQ(with_signals(call("SetString" + shape, "s", text.c_str())),
                  path + " faultAdded s \"" + text + "\"\ni " + std::to_string(++changes));
        EXPECT_EQ(with_signals(call("ChangeContainer" + shape)),
                  path + " complextypes (quat)s (7, 70000, [1, 2, 3]), \"" + text + "\"\ni " +
                      std::to_string(++changes));
        EXPECT_EQ(call("GetString" + shape), "s \"" + text + '"');
        EXPECT_EQ(call("Deferred"), "i " + std::to_string(changes));
    }

    EXPECT_EQ(client.call(other, async, "NoParam").text, "s \"textDeferred\"");
    EXPECT_EQ(client.call(other, async, "OneParam", "s", "").text, "s \"\"");
    EXPECT_EQ(client.call(other, async, "OneParam", "s", "one").text, "s \"one\"");
}

TEST(Minimal, AnnouncesItselfAndServes)
{
    Client client;
    client.subscribe();
    const Program program(MINIMAL);
    client.wait_for([&] { return client.signals("Refresh").size() == 1; });
    const auto refresh = client.signals("Refresh").at(0);
    EXPECT_EQ(refresh.path, "/com/orvane/velmar/HWInventory");
    EXPECT_EQ(refresh.interface, hw_inventory);
    EXPECT_EQ(refresh.body, "s \"started\"");

    const Object inventory{refresh.sender, refresh.path};
    EXPECT_EQ(client.name_owner(hw_inventory), inventory.service);
    EXPECT_EQ(client.call(inventory, hw_inventory, "GetDMStatus").text, "i 1");
    EXPECT_EQ(client.call(inventory, hw_inventory, "GetPopStatus").text, "i 0");
    const Object slot{inventory.service, "/com/orvane/velmar/system/NicSlot/1"};
    EXPECT_EQ(client
                  .call(slot, "com.orvane.velmar.system.NicSlot", "TriggerAdapterCoreDump",
                        "sysssssy", "job", 1, "share", "folder", "file", "user", "password", 2)
                  .text,
              "is 0, \"job\"");
}

TEST(Listener, PrintsEverySignal)
{
    Program program(LISTENER);
    ASSERT_EQ(program.line(), "listening");
    Client client;
    client.emit(nullptr, "/a", hw_inventory, "Refresh", "s", "all");
    EXPECT_EQ(program.line(), "Refresh [all]");
    client.emit(nullptr, "/a", "com.orvane.velmar.hwi.HWISupport", "HardwareInventoryChanged");
    EXPECT_EQ(program.line(), "HardwareInventoryChanged");
    client.emit(nullptr, "/a", gantrytest, "faultAdded", "s", "");
    EXPECT_EQ(program.line(), "faultAdded []");
    client.emit(nullptr, "/a", gantrytest, "complextypes", "(quat)s", USHRT_MAX, UINT_MAX, 2,
                UINT64_C(0), UINT64_MAX, "text");
    EXPECT_EQ(program.line(), "complextypes 65535 4294967295 [0 18446744073709551615] [text]");
    // What can't be read is dropped, and the next is heard.
    client.emit(nullptr, "/a", gantrytest, "complextypes", "s", "text");
    client.emit(nullptr, "/a", gantrytest, "complextypes", "(quat)s", 0, 0, 0, "");
    EXPECT_EQ(program.line(), "complextypes 0 0 [] []");
}

} // namespace
