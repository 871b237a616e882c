// The ten basic types by themselves: skeleton values, the log, and what goes in and out of a
// message.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include <gantry/types.hpp>

#include <sdbusplus/exception.hpp>

#include "src/logged.hpp"
#include "support/client.hpp"
#include "support/render.hpp"

namespace
{

std::string owned(char* text)
{
    std::string copy = text == nullptr ? "null" : text;
    free(text);
    return copy;
}

TEST(Types, FoldANameAndASeedIntoAValue)
{
    EXPECT_EQ(GANTRY_byte_c_skeleton("abc", 1), 179);
    EXPECT_EQ(GANTRY_boolean_c_skeleton("abc", 1), true);
    EXPECT_EQ(GANTRY_int16_c_skeleton("abc", 1), 691);
    EXPECT_EQ(GANTRY_uint16_c_skeleton("abc", 1), 691);
    EXPECT_EQ(GANTRY_int32_c_skeleton("abc", 1), 691);
    EXPECT_EQ(GANTRY_uint32_c_skeleton("abc", 1), 691U);
    EXPECT_EQ(GANTRY_int64_c_skeleton("abc", 1), 691);
    EXPECT_EQ(GANTRY_uint64_c_skeleton("abc", 1), 691U);
    EXPECT_EQ(GANTRY_double_c_skeleton("abc", 1), 172.375);

    for (const char* name : {static_cast<const char*>(nullptr), ""})
    {
        EXPECT_EQ(GANTRY_byte_c_skeleton(name, -1), 255);
        EXPECT_EQ(GANTRY_boolean_c_skeleton(name, -1), true);
        EXPECT_EQ(GANTRY_int16_c_skeleton(name, -1), -1);
        EXPECT_EQ(GANTRY_uint16_c_skeleton(name, -1), 65535);
        EXPECT_EQ(GANTRY_int32_c_skeleton(name, -1), -1);
        EXPECT_EQ(GANTRY_uint32_c_skeleton(name, -1), UINT_MAX);
        EXPECT_EQ(GANTRY_int64_c_skeleton(name, -1), -1);
        EXPECT_EQ(GANTRY_uint64_c_skeleton(name, -1), UINT64_MAX);
        EXPECT_EQ(GANTRY_double_c_skeleton(name, -1), -1.0);
    }

    // Each wraps at its own width and at each step.
    EXPECT_EQ(GANTRY_int16_c_skeleton("a", 16384), -32671);
    EXPECT_EQ(GANTRY_uint16_c_skeleton("a", 16384), 32865);
    EXPECT_EQ(GANTRY_byte_c_skeleton(nullptr, 0x1234), 0x34);
    EXPECT_EQ(GANTRY_int32_c_skeleton("a", INT_MAX), 95);
    EXPECT_EQ(GANTRY_uint32_c_skeleton("a", INT_MIN), 97U);
    EXPECT_EQ(GANTRY_int64_c_skeleton("a", INT_MAX), 4294967391);
    EXPECT_EQ(GANTRY_uint64_c_skeleton("a", INT_MIN), UINT64_C(0xFFFFFFFF00000061));
    EXPECT_EQ(GANTRY_boolean_c_skeleton(nullptr, 127), false);
    EXPECT_EQ(GANTRY_boolean_c_skeleton(nullptr, 128), true);
    EXPECT_EQ(GANTRY_boolean_c_skeleton(nullptr, 256), false);
    // Bytes are never negative.
    EXPECT_EQ(GANTRY_int32_c_skeleton("\xFF", 0), 255);
    EXPECT_EQ(GANTRY_double_c_skeleton("\x80\xFF", 1), 319.25);

    EXPECT_EQ(owned(GANTRY_string_c_skeleton(nullptr, 5)), "skeleton string");
    EXPECT_EQ(owned(GANTRY_string_c_skeleton("", -5)), "skeleton string for  -5");
    EXPECT_EQ(owned(GANTRY_string_c_skeleton("name", INT_MIN)),
              "skeleton string for name -2147483648");
}

// What one call of a debug function logs, name aside.
template <class Value>
std::string debugged(void (*debug)(const char*, Value*), Value value)
{
    logged();
    debug(nullptr, &value);
    debug("name", nullptr);
    debug("name", &value);
    const std::string line = logged();
    const auto start = line.find(": name=");
    return start == std::string::npos ? line : line.substr(start + 7, line.size() - start - 8);
}

TEST(Types, AreLoggedWithAName)
{
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 'A'), "65 (A)");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0x1F), "31 (.)");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0x20), "32 ( )");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0x7E), "126 (~)");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0x7F), "127 (.)");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0x80), "128 (.)");
    EXPECT_EQ(debugged<unsigned char>(GANTRY_byte_c_debug, 0xFF), "255 (.)");
    EXPECT_EQ(debugged<bool>(GANTRY_boolean_c_debug, true), "true");
    EXPECT_EQ(debugged<bool>(GANTRY_boolean_c_debug, false), "false");
    EXPECT_EQ(debugged<short>(GANTRY_int16_c_debug, SHRT_MIN), "-32768");
    EXPECT_EQ(debugged<unsigned short>(GANTRY_uint16_c_debug, USHRT_MAX), "65535");
    EXPECT_EQ(debugged<int>(GANTRY_int32_c_debug, INT_MIN), "-2147483648");
    EXPECT_EQ(debugged<unsigned int>(GANTRY_uint32_c_debug, UINT_MAX), "4294967295");
    EXPECT_EQ(debugged<long>(GANTRY_int64_c_debug, INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(debugged<unsigned long>(GANTRY_uint64_c_debug, UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(debugged<double>(GANTRY_double_c_debug, 1e21), "1e+21");
    char text[] = "te%st";
    EXPECT_EQ(debugged<char*>(GANTRY_string_c_debug, text), "[te%st]");
    EXPECT_EQ(debugged<char*>(GANTRY_string_c_debug, nullptr), "NULL");

    short value = 5;
    GANTRY_int16_c_debug("name", &value);
    EXPECT_EQ(logged(), "9 gantrycommon.GANTRY_int16_c_debug: name=5\n");
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
                               const std::string& rendered, const std::string& failure)
    {
        auto message = make();
        append(message, &value);
        EXPECT_EQ(seal(message), rendered);
        Value read{};
        parse(message, &read);
        EXPECT_EQ(read, value) << rendered;

        // At the end, and before a value of another type.
        expect_failure([&] { parse(message, &read); }, failure);
        auto other = make();
        sd_bus_message_append(other.get(), "g", "s");
        seal(other);
        expect_failure([&] { parse(other, &read); }, failure);
        EXPECT_EQ(read, value) << "stays as it was";
    }

    static void expect_failure(const std::function<void()>& parse, const std::string& failure)
    {
        try
        {
            parse();
            ADD_FAILURE() << failure;
        }
        catch (const sdbusplus::exception::SdBusError& error)
        {
            EXPECT_EQ(error.get_errno(), ENXIO);
            EXPECT_EQ(error.description(), failure + ": No such device or address");
        }
    }

    support::Client client;
};

TEST_F(TypesInMessages, GoThereAndBack)
{
#define THERE_AND_BACK(type, value, rendered, failure)                                             \
    expect_there_and_back<decltype(GANTRY_##type##_c_skeleton("", 0))>(                            \
        GANTRY_##type##_reply_append, GANTRY_##type##_parse_parameter, value, rendered,            \
        "sd_bus_message_read_basic " failure)

    THERE_AND_BACK(byte, 255, "y 255", "fundamental");
    THERE_AND_BACK(boolean, true, "b true", "bool");
    THERE_AND_BACK(int16, SHRT_MIN, "n -32768", "fundamental");
    THERE_AND_BACK(uint16, USHRT_MAX, "q 65535", "fundamental");
    THERE_AND_BACK(int32, INT_MIN, "i -2147483648", "fundamental");
    THERE_AND_BACK(uint32, UINT_MAX, "u 4294967295", "fundamental");
    THERE_AND_BACK(int64, INT64_MIN, "x -9223372036854775808", "fundamental");
    THERE_AND_BACK(uint64, UINT64_MAX, "t 18446744073709551615", "fundamental");
    THERE_AND_BACK(double, -0.5, "d -0.5", "fundamental");
#undef THERE_AND_BACK
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
    EXPECT_EQ(seal(message), "ssss \"text\", \"\", \"\", \"a\xEF\xBF\xBDz\xEF\xBF\xBD\"");
    EXPECT_STREQ(bad, "a\xFFz\xC3");

    for (const std::string expected : {"text", "", "", "a\xEF\xBF\xBDz\xEF\xBF\xBD"})
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
    expect_failure([&] { GANTRY_string_parse_parameter(message, &unread); },
                   "sd_bus_message_read_basic string");
    EXPECT_EQ(unread, nullptr);

    std::string original = "text";
    char* copy = GANTRY_string_cpp_to_c(original);
    *copy = 'n';
    EXPECT_EQ(original, "text");
    EXPECT_EQ(GANTRY_string_c_to_cpp(&copy), "next");
    GANTRY_string_free(&copy);
    EXPECT_EQ(GANTRY_string_c_to_cpp(&copy), "");
    EXPECT_EQ(GANTRY_string_c_to_cpp(nullptr), "");
}

} // namespace
