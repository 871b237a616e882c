#include "initial.hpp"
#include "types.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using gantrygen::parse_type;

struct Form
{
    std::string_view extended;
    std::string_view signature;
    std::string_view cpp;
};

constexpr Form forms[] = {
    {"y", "y", "unsigned char"},
    {"b", "b", "bool"},
    {"n", "n", "short"},
    {"q", "q", "unsigned short"},
    {"i", "i", "int"},
    {"u", "u", "unsigned int"},
    {"x", "x", "long"},
    {"t", "t", "unsigned long"},
    {"d", "d", "double"},
    {"s", "s", "std::string"},
    {"as", "as", "std::vector<std::string>"},
    {"An", "an", "std::set<short>"},
    {"aAay", "aaay", "std::vector<std::set<std::vector<unsigned char>>>"},
    {"A(y)", "a(y)", "std::set<std::tuple<unsigned char>>"},
    {"a{qs}", "a{qs}", "std::map<unsigned short, std::string>"},
    {"a{s(nix)}", "a{s(nix)}", "std::map<std::string, std::tuple<short, int, long>>"},
    {"a{sAi}", "a{sai}", "std::map<std::string, std::set<int>>"},
    {"(ananas)", "(ananas)",
     "std::tuple<std::vector<short>, std::vector<short>, std::vector<std::string>>"},
    {"((y(qu))i(xt))", "((y(qu))i(xt))",
     "std::tuple<std::tuple<unsigned char, std::tuple<unsigned short, unsigned int>>, int, "
     "std::tuple<long, unsigned long>>"},
    {"v<y(nix)s>", "v", "std::variant<unsigned char, std::tuple<short, int, long>, std::string>"},
    {"a{sv<ns(nix)>}", "a{sv}",
     "std::map<std::string, std::variant<short, std::string, std::tuple<short, int, long>>>"},
    {"v<v<y>s>", "v", "std::variant<std::variant<unsigned char>, std::string>"},
};

TEST(Types, HaveASignatureAndACppType)
{
    for (const auto& [extended, signature, cpp] : forms)
    {
        const gantrygen::Type type = parse_type(extended);
        EXPECT_EQ(gantrygen::signature(type), signature);
        EXPECT_EQ(gantrygen::cpp_type(type), cpp);
    }
}

std::string repeated(std::string_view text, int count)
{
    std::string whole;
    for (; count > 0; --count)
    {
        whole += text;
    }
    return whole;
}

TEST(Types, RefuseWhatIsNoSignature)
{
    struct Fault
    {
        std::string extended;
        std::string_view message;
    };
    const Fault faults[] = {
        {"", "ends within a type"},
        {"a", "ends within a type"},
        {"(y", "ends within a type"},
        {"v<y", "ends within a type"},
        {"()", "unknown type ')'"},
        {"v<>", "unknown type '>'"},
        {"h", "unknown type 'h'"},
        {"o", "unknown type 'o'"},
        {"{ss}", "unknown type '{'"},
        {"A{ss}", "unknown type '{'"},
        {"yy", "more than one complete type"},
        {"y)", "more than one complete type"},
        {"v", "a variant needs its alternatives"},
        {"a{sv}", "a variant needs its alternatives"},
        {"a{ays}", "the key of a dict is not a basic type"},
        {"a{v<s>s}", "the key of a dict is not a basic type"},
        {"a{s}", "unknown type '}'"},
        {"a{sss}", "expected '}'"},
        {"v<ys(nix)y>", "two alternatives of a variant have the same signature"},
        {"v<aiAi>", "two alternatives of a variant have the same signature"},
        {repeated("a", 33) + "y", "containers nest deeper"},
        {repeated("(", 33) + "y" + repeated(")", 33), "containers nest deeper"},
        {repeated("v<", 65) + "y" + repeated(">", 65), "containers nest deeper"},
        {"(" + repeated("y", 254) + ")", "longer than D-Bus allows"},
    };
    for (const auto& [extended, message] : faults)
    {
        try
        {
            parse_type(extended);
            ADD_FAILURE() << extended << " is no signature";
        }
        catch (const gantrygen::SignatureError& error)
        {
            EXPECT_NE(std::string_view(error.what()).find(message), std::string_view::npos)
                << extended << ": " << error.what();
        }
    }
    EXPECT_NO_THROW(parse_type(repeated("a", 32) + repeated("(", 32) + "y" + repeated(")", 32)));
    EXPECT_NO_THROW(parse_type("(" + repeated("y", 253) + ")"));
}

TEST(Types, StandInAPropertyVariantOnceAndInItsOrder)
{
    const auto variant = [](const std::vector<std::string_view>& extended)
    {
        std::vector<gantrygen::Type> types(extended.size());
        std::transform(extended.begin(), extended.end(), types.begin(), parse_type);
        return gantrygen::cpp_type(gantrygen::property_variant(types));
    };

    EXPECT_EQ(variant({"y", "t", "u", "q", "as", "s", "n", "d", "b", "y", "s"}),
              "std::variant<bool, double, short, std::string, std::vector<std::string>, "
              "unsigned short, unsigned int, unsigned long, unsigned char>");
    EXPECT_EQ(variant({"y", "y"}), "std::variant<unsigned char>");
    EXPECT_EQ(
        variant({"y",
                 "b",
                 "n",
                 "q",
                 "i",
                 "u",
                 "x",
                 "t",
                 "d",
                 "s",
                 "ay",
                 "aay",
                 "aAay",
                 "a{qs}",
                 "a{s(nix)}",
                 "Ai",
                 "A(y)",
                 "A(nix)",
                 "(nix)",
                 "v<y(nix)s>",
                 "((y(qu))i(xt))",
                 "a{sv<ns(nix)>}",
                 "d"}),
        "std::variant<bool, double, short, int, long, "
        "std::map<std::string, std::tuple<short, int, long>>, "
        "std::map<std::string, std::variant<short, std::string, std::tuple<short, int, long>>>, "
        "std::map<unsigned short, std::string>, "
        "std::set<int>, std::set<std::tuple<short, int, long>>, "
        "std::set<std::tuple<unsigned char>>, "
        "std::string, std::tuple<short, int, long>, "
        "std::tuple<std::tuple<unsigned char, std::tuple<unsigned short, unsigned int>>, int, "
        "std::tuple<long, unsigned long>>, "
        "std::variant<unsigned char, std::tuple<short, int, long>, std::string>, "
        "std::vector<std::set<std::vector<unsigned char>>>, "
        "std::vector<std::vector<unsigned char>>, std::vector<unsigned char>, "
        "unsigned short, unsigned int, unsigned long, unsigned char>");
}

TEST(Types, TakeInitialValuesThatFit)
{
    struct Value
    {
        std::string_view type;
        std::string_view text;
        std::string_view literal; // none: refused
    };
    constexpr Value values[] = {
        {"y", "0", "0"},
        {"y", "255", "255"},
        {"y", "256", ""},
        {"y", "-1", ""},
        {"y", "", ""},
        {"y", "1 ", ""},
        {"y", "+1", ""},
        {"y", "0x1", ""},
        {"y", "1.0", ""},
        {"n", "-32768", "-32768"},
        {"n", "32768", ""},
        {"q", "65536", ""},
        {"i", "-2147483648", "-2147483648"},
        {"i", "2147483648", ""},
        {"u", "4294967295", "4294967295U"},
        {"u", "4294967296", ""},
        {"x", "-9223372036854775808", "-9223372036854775807L - 1"},
        {"x", "9223372036854775807", "9223372036854775807L"},
        {"x", "9223372036854775808", ""},
        {"t", "18446744073709551615", "18446744073709551615UL"},
        {"t", "18446744073709551616", ""},
        {"b", "true", "true"},
        {"b", "false", "false"},
        {"b", "1", ""},
        {"d", "2", "2.0"},
        {"d", "-0.5", "-0.5"},
        {"d", "1e300", "1e+300"},
        {"d", "1e400", ""},
        {"d", "nan", ""},
        {"d", "inf", ""},
        {"s", "", "\"\""},
        {"s", "say \"\\\"\t1", R"("say \"\\\"\0111")"},
        {"as", "x", ""},
        {"(y)", "1", ""},
        {"v<y>", "1", ""},
    };
    for (const auto& [type, text, literal] : values)
    {
        EXPECT_EQ(gantrygen::initial_literal(parse_type(type), text).value_or(""), literal)
            << type << ' ' << text;
    }
}

} // namespace
