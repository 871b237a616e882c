// The ten basic types by themselves: skeleton values, the log, and what goes in and out of a
// message.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include <gantry/types.hpp>

#include <sdbusplus/exception.hpp>

#include "src/logged.hpp"
#include "support/client.hpp"
#include "support/render.hpp"

namespace
{

// What each type folds a name and a seed into, in the order of their widths.
struct Folded
{
    const char* name;
    int seed;
    unsigned char byte;
    short int16;
    int int32;
    std::int64_t int64;
    double real;
};

TEST(Types, FoldANameAndASeedIntoAValue)
{
    const Folded folds[] = {
        {"abc", 1, 179, 691, 691, 691, 172.375},
        {nullptr, -1, 255, -1, -1, -1, -1.0},
        {"", -1, 255, -1, -1, -1, -1.0},
        // Each wraps at its own width and at each step.
        {nullptr, 0x1234, 0x34, 0x1234, 0x1234, 0x1234, 0x1234},
        {"a", 16384, 97, -32671, 32865, 32865, 8289},
        {"a", INT_MAX, 95, 95, 95, 4294967391, 1073741920.5},
        {"a", INT_MIN, 97, 97, 97, -4294967199, -1073741727},
        // Bytes are never negative.
        {"\x80\xFF", 1, 3, 515, 515, 515, 319.25},
        {nullptr, 127, 127, 127, 127, 127, 127},
        {nullptr, 128, 128, 128, 128, 128, 128},
        {nullptr, 256, 0, 256, 256, 256, 256},
    };
    for (const auto& [name, seed, byte, int16, int32, int64, real] : folds)
    {
        SCOPED_TRACE(seed);
        EXPECT_EQ(GANTRY_byte_c_skeleton(name, seed), byte);
        EXPECT_EQ(GANTRY_boolean_c_skeleton(name, seed), byte >= 128);
        EXPECT_EQ(GANTRY_int16_c_skeleton(name, seed), int16);
        EXPECT_EQ(GANTRY_uint16_c_skeleton(name, seed), static_cast<unsigned short>(int16));
        EXPECT_EQ(GANTRY_int32_c_skeleton(name, seed), int32);
        EXPECT_EQ(GANTRY_uint32_c_skeleton(name, seed), static_cast<unsigned>(int32));
        EXPECT_EQ(GANTRY_int64_c_skeleton(name, seed), int64);
        EXPECT_EQ(GANTRY_uint64_c_skeleton(name, seed), static_cast<std::uint64_t>(int64));
        EXPECT_EQ(GANTRY_double_c_skeleton(name, seed), real);
    }

    const auto string = [](const char* name, int seed)
    {
        char* text = GANTRY_string_c_skeleton(name, seed);
        const std::string copy = text;
        free(text);
        return copy;
    };
    EXPECT_EQ(string(nullptr, 5), "skeleton string");
    EXPECT_EQ(string("", -5), "skeleton string for  -5");
    EXPECT_EQ(string("name", INT_MIN), "skeleton string for name -2147483648");
}

template <class Value>
void expect_debugged(void (*debug)(const char*, Value*), Value value, const std::string& type,
                     const std::string& text)
{
    logged();
    debug(nullptr, &value);
    debug("name", nullptr);
    debug("name", &value);
    EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_" + type + "_c_debug: name=" + text + '\n');
}

TEST(Types, AreLoggedWithAName)
{
#define EXPECT_DEBUGGED(type, value, text)                                                         \
    expect_debugged<decltype(GANTRY_##type##_c_skeleton("", 0))>(GANTRY_##type##_c_debug, value,   \
                                                                 #type, text)
    EXPECT_DEBUGGED(byte, 0x1F, "31 (.)");
    EXPECT_DEBUGGED(byte, 0x20, "32 ( )");
    EXPECT_DEBUGGED(byte, 0x7E, "126 (~)");
    EXPECT_DEBUGGED(byte, 0x7F, "127 (.)");
    EXPECT_DEBUGGED(byte, 0xFF, "255 (.)");
    EXPECT_DEBUGGED(boolean, true, "true");
    EXPECT_DEBUGGED(boolean, false, "false");
    EXPECT_DEBUGGED(int16, SHRT_MIN, "-32768");
    EXPECT_DEBUGGED(uint16, USHRT_MAX, "65535");
    EXPECT_DEBUGGED(int32, INT_MIN, "-2147483648");
    EXPECT_DEBUGGED(uint32, UINT_MAX, "4294967295");
    EXPECT_DEBUGGED(int64, INT64_MIN, "-9223372036854775808");
    EXPECT_DEBUGGED(uint64, UINT64_MAX, "18446744073709551615");
    EXPECT_DEBUGGED(double, 1e21, "1e+21");
    char text[] = "te%st";
    EXPECT_DEBUGGED(string, text, "[te%st]");
    EXPECT_DEBUGGED(string, nullptr, "NULL");
}

class TypesInMessages : public testing::Test
{
  protected:
    // A signal that stays here.
    sdbusplus::message::message make()
    {
        return sdbusplus::message::message(client.new_signal(nullptr, "/a", "a.b", "c").get());
    }

    // To be read from its start on; gives what is in it.
    static std::string seal(sdbusplus::message::message& message)
    {
        EXPECT_GE(sd_bus_message_seal(message.get(), 1, 0), 0);
        return support::render(message.get());
    }

    template <class Value>
    void expect_there_and_back(void (*append)(sdbusplus::message::message&, Value*),
                               void (*parse)(sdbusplus::message::message&, Value*), Value value,
                               const std::string& rendered)
    {
        auto message = make();
        append(message, &value);
        EXPECT_EQ(seal(message), rendered);
        Value read{};
        parse(message, &read);
        EXPECT_EQ(read, value) << rendered;
        EXPECT_THROW(parse(message, &read), sdbusplus::exception::SdBusError); // at the end
        EXPECT_EQ(read, value) << "stays as it was";
    }

    support::Client client;
};

TEST_F(TypesInMessages, GoThereAndBack)
{
#define THERE_AND_BACK(type, value, rendered)                                                      \
    expect_there_and_back<decltype(GANTRY_##type##_c_skeleton("", 0))>(                            \
        GANTRY_##type##_reply_append, GANTRY_##type##_parse_parameter, value, rendered)
    THERE_AND_BACK(byte, 255, "y 255");
    THERE_AND_BACK(boolean, true, "b true");
    THERE_AND_BACK(int16, SHRT_MIN, "n -32768");
    THERE_AND_BACK(uint16, USHRT_MAX, "q 65535");
    THERE_AND_BACK(int32, INT_MIN, "i -2147483648");
    THERE_AND_BACK(uint32, UINT_MAX, "u 4294967295");
    THERE_AND_BACK(int64, INT64_MIN, "x -9223372036854775808");
    THERE_AND_BACK(uint64, UINT64_MAX, "t 18446744073709551615");
    THERE_AND_BACK(double, -0.5, "d -0.5");
}

TEST_F(TypesInMessages, StringsAreCopiesAndNullIsEmpty)
{
    auto message = make();
    char text[] = "text";
    char bad[] = "a\xFFz\xC3";
    char* null = nullptr;
    char* pointer = text;
    GANTRY_string_reply_append(message, &pointer);
    GANTRY_string_reply_append(message, &null);
    GANTRY_string_reply_append(message, nullptr);
    pointer = bad;
    GANTRY_string_reply_append(message, &pointer);
    EXPECT_EQ(seal(message), "ssss \"text\", \"\", \"\", \"a\uFFFDz\uFFFD\"");
    EXPECT_STREQ(bad, "a\xFFz\xC3");

    for (const std::string expected : {"text", "", "", "a\uFFFDz\uFFFD"})
    {
        char* read = nullptr;
        GANTRY_string_parse_parameter(message, &read);
        EXPECT_EQ(read, expected);
        logged();
        GANTRY_string_free(&read);
        EXPECT_EQ(read, nullptr);
        GANTRY_string_free(&read);
        GANTRY_string_free(nullptr);
        EXPECT_EQ(support::captured_log::count("enter", "GANTRY_string_free"), 3U);
    }
    char* unread = nullptr;
    EXPECT_THROW(GANTRY_string_parse_parameter(message, &unread), sdbusplus::exception::SdBusError);
    EXPECT_EQ(unread, nullptr);

    std::string original = "text";
    char* copy = GANTRY_string_cpp_to_c(original);
    *copy = 'n';
    EXPECT_EQ(original, "text");
    EXPECT_EQ(GANTRY_string_c_to_cpp(&copy), "next");
    GANTRY_string_free(&copy);
}

} // namespace
