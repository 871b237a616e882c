// What follows by rule from a table's names, types and initial values.
#include "initial.hpp"
#include "names.hpp"
#include "types.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace
{

using gantrygen::parse_type;

TEST(Names, Accessors_keep_the_capital_that_opens_a_word_and_lose_those_before_it)
{
    constexpr std::string_view names[][3] = {
        {"Key", "Key", "key"},
        {"hdr_DOT_objName", "HdrDOTObjName", "hdrDOTObjName"},
        {"iSCSIOSDriver", "ISCSIOSDriver", "iscsiosDriver"},
        {"FCoEoffloadmode", "FCoEoffloadmode", "fCoEoffloadmode"},
        {"VL15Dropped", "VL15Dropped", "vL15Dropped"},
        {"lane_2bias", "Lane2bias", "lane2bias"},
        {"_", "", ""},
    };
    for (const auto& [member, title, accessor] : names)
    {
        EXPECT_EQ(gantrygen::title(member), title);
        EXPECT_EQ(gantrygen::accessor(member), accessor);
    }
}

TEST(Names, DBus_allows_255_letters_and_no_empty_element)
{
    const std::string longest = "a." + std::string(253, 'x');
    EXPECT_TRUE(gantrygen::is_interface_name(longest));
    EXPECT_FALSE(gantrygen::is_interface_name(longest + 'x'));
    EXPECT_FALSE(gantrygen::is_interface_name("a"));
    EXPECT_FALSE(gantrygen::is_interface_name("a..b"));
    EXPECT_FALSE(gantrygen::is_interface_name("a.1b"));
    EXPECT_TRUE(gantrygen::is_member_name(std::string(255, 'x')));
    EXPECT_FALSE(gantrygen::is_member_name(std::string(256, 'x')));
}

TEST(Types, A_property_variant_has_its_alternatives_in_the_same_order_in_every_release)
{
    std::vector<gantrygen::Type> types;
    for (const char* const extended : {"y", "t", "aq", "at", "a{qs}", "Ai", "v<y>", "u", "q", "s",
                                       "(n)", "n", "d", "b", "i", "x", "s"})
    {
        types.push_back(parse_type(extended));
    }
    EXPECT_EQ(gantrygen::cpp_type(gantrygen::property_variant(types)),
              "std::variant<bool, double, short, int, long, std::map<unsigned short, std::string>, "
              "std::set<int>, std::string, std::tuple<short>, std::variant<unsigned char>, "
              "std::vector<unsigned long>, std::vector<unsigned short>, unsigned short, "
              "unsigned int, unsigned long, unsigned char>");
}

TEST(Types, A_signature_at_a_limit_of_DBus_is_taken)
{
    const std::string deep(32, '(');
    const std::string arrays(32, 'a');
    EXPECT_NO_THROW(parse_type(arrays + deep + "y" + std::string(32, ')')));
    EXPECT_NO_THROW(parse_type(arrays + "v<" + std::string(31, 'a') + "y>"));
    EXPECT_NO_THROW(parse_type("(" + std::string(253, 'y') + ")"));
    EXPECT_THROW(parse_type("a" + arrays + "y"), gantrygen::SignatureError);
    EXPECT_THROW(parse_type("(" + deep + "y" + std::string(33, ')')), gantrygen::SignatureError);
    EXPECT_THROW(parse_type(arrays + "v<" + arrays + "y>"), gantrygen::SignatureError);
    EXPECT_THROW(parse_type("(" + std::string(254, 'y') + ")"), gantrygen::SignatureError);
    EXPECT_THROW(parse_type("v<(" + std::string(254, 'y') + ")>"), gantrygen::SignatureError);
}

TEST(Types, An_initial_value_at_its_types_limit_keeps_its_value_and_one_beyond_is_refused)
{
    const auto literal = [](std::string_view type, std::string_view text)
    { return gantrygen::initial_literal(parse_type(type), text).value_or("none"); };
    EXPECT_EQ(literal("y", "255"), "255");
    EXPECT_EQ(literal("n", "-32768"), "-32768");
    EXPECT_EQ(literal("u", "4294967295"), "4294967295");
    EXPECT_EQ(literal("x", "-9223372036854775808"), "-9223372036854775807 - 1");
    EXPECT_EQ(literal("t", "18446744073709551615"), "18446744073709551615U");
    EXPECT_EQ(literal("d", "12345678901234567000"), "12345678901234567168.0");
    EXPECT_EQ(literal("s", "say \"\\\"\t1\?\?/"), R"("say \"\\\"\0111\?\?/")");
    for (const std::string_view value : {"y256", "y-1", "y", "y1 ", "q65536", "i2147483648", "b1",
                                         "t18446744073709551616", "d1e400", "dnan"})
    {
        EXPECT_EQ(literal(value.substr(0, 1), value.substr(1)), "none") << value;
    }
}

} // namespace
