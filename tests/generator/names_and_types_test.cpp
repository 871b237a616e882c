// What follows by rule from a table's words: C++ names, C++ types, literals, exported symbols.
#include "initial.hpp"
#include "names.hpp"
#include "symbols.hpp"
#include "types.hpp"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <typeinfo>
#include <variant>
#include <vector>

namespace
{

using gantrygen::parse_type;

TEST(Names, FollowFromTheMember)
{
    // Regular names, then those whose accessors look wrong and are right.
    constexpr std::string_view names[][3] = {
        {"Key", "Key", "key"},
        {"FQDD", "FQDD", "fqdd"},
        {"FriendlyFQDD", "FriendlyFQDD", "friendlyFQDD"},
        {"hdr_DOT_objName", "HdrDOTObjName", "hdrDOTObjName"},
        {"DOH_ObjStatus", "DOHObjStatus", "dohObjStatus"},
        {"PCIBus", "PCIBus", "pciBus"},
        {"Try_byte_D", "TryByteD", "tryByteD"},

        {"iSCSIOSDriver", "ISCSIOSDriver", "iscsiosDriver"},
        {"iScsiOffloadMode", "IScsiOffloadMode", "iScsiOffloadMode"},
        {"PCIheaderType", "PCIheaderType", "pcIheaderType"},
        {"FCoEoffloadmode", "FCoEoffloadmode", "fCoEoffloadmode"},
        {"RX1InputPowerValue", "RX1InputPowerValue", "rX1InputPowerValue"},
        {"VL15Dropped", "VL15Dropped", "vL15Dropped"},

        // A digit has no capital to raise, and what is left of nothing is nothing.
        {"lane_2bias", "Lane2bias", "lane2bias"},
        {"a__b_", "AB", "ab"},
        {"_", "", ""},
    };
    for (const auto& [member, title, accessor] : names)
    {
        EXPECT_EQ(gantrygen::title(member), title);
        EXPECT_EQ(gantrygen::accessor(member), accessor);
    }
}

TEST(Names, AreThoseThatDBusAllows)
{
    const std::string longest = "a." + std::string(253, 'x');
    for (const std::string& name : {std::string("_a._1"), longest})
    {
        EXPECT_TRUE(gantrygen::is_interface_name(name)) << name;
    }
    for (const std::string& name :
         {std::string(), std::string("a"), std::string(".a"), std::string("a."),
          std::string("a..b"), std::string("a.1b"), std::string("a.b-c"), longest + 'x'})
    {
        EXPECT_FALSE(gantrygen::is_interface_name(name)) << name;
    }
    EXPECT_TRUE(gantrygen::is_member_name(std::string(255, 'x')));
    for (const std::string& name : {std::string(), std::string("1a"), std::string("a.b"),
                                    std::string("\xc3\xa9"), std::string(256, 'x')})
    {
        EXPECT_FALSE(gantrygen::is_member_name(name)) << name;
    }
}

TEST(Types, HaveASignatureAndACppType)
{
    constexpr std::string_view forms[][3] = {
        {"y", "y", "unsigned char"},
        {"b", "b", "bool"},
        {"n", "n", "short"},
        {"q", "q", "unsigned short"},
        {"d", "d", "double"},
        {"aAay", "aaay", "std::vector<std::set<std::vector<unsigned char>>>"},
        {"a{sAi}", "a{sai}", "std::map<std::string, std::set<int>>"},
        {"((y(qu))i(xt))", "((y(qu))i(xt))",
         "std::tuple<std::tuple<unsigned char, std::tuple<unsigned short, unsigned int>>, int, "
         "std::tuple<long, unsigned long>>"},
        {"a{sv<ns(nix)>}", "a{sv}",
         "std::map<std::string, std::variant<short, std::string, std::tuple<short, int, long>>>"},
        {"v<v<y>s>", "v", "std::variant<std::variant<unsigned char>, std::string>"},
    };
    for (const auto& [extended, signature, cpp] : forms)
    {
        const gantrygen::Type type = parse_type(extended);
        EXPECT_EQ(gantrygen::signature(type), signature);
        EXPECT_EQ(gantrygen::cpp_type(type), cpp);
    }

    std::vector<gantrygen::Type> types;
    for (const char* const extended : {"y", "t", "aq", "at", "a{qs}", "Ai", "v<ys>", "u", "q", "as",
                                       "s", "(nix)", "n", "d", "b", "y", "s", "i", "x"})
    {
        types.push_back(parse_type(extended));
    }
    EXPECT_EQ(gantrygen::cpp_type(gantrygen::property_variant(types)),
              "std::variant<bool, double, short, int, long, std::map<unsigned short, std::string>, "
              "std::set<int>, std::string, std::tuple<short, int, long>, "
              "std::variant<unsigned char, std::string>, std::vector<std::string>, "
              "std::vector<unsigned long>, std::vector<unsigned short>, unsigned short, "
              "unsigned int, unsigned long, unsigned char>");
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
    const std::pair<std::string, std::string_view> faults[] = {
        {"", "ends within a type"},
        {"v<y", "ends within a type"},
        {"()", "unknown type ')'"},
        {"o", "unknown type 'o'"},
        {"A{ss}", "unknown type '{'"},
        {"yy", "more than one complete type"},
        {"a{sv}", "a variant needs its alternatives"},
        {"a{v<s>s}", "the key of a dict is not a basic type"},
        {"a{s}", "unknown type '}'"},
        {"a{sss}", "expected '}'"},
        {"v<aisAi>", "two alternatives of a variant have the same signature"},
        {repeated("a", 33) + "y", "containers nest deeper"},
        {repeated("(", 33) + "y" + repeated(")", 33), "containers nest deeper"},
        {repeated("v<", 65) + "y" + repeated(">", 65), "containers nest deeper"},
        {"(" + repeated("y", 254) + ")", "longer than D-Bus allows"},
    };
    for (const auto& [extended, message] : faults)
    {
        std::string refusal;
        try
        {
            parse_type(extended);
        }
        catch (const gantrygen::SignatureError& error)
        {
            refusal = error.what();
        }
        EXPECT_NE(refusal.find(message), std::string::npos) << extended << ": " << refusal;
    }
    EXPECT_NO_THROW(parse_type(repeated("a", 32) + repeated("(", 32) + "y" + repeated(")", 32)));
    EXPECT_NO_THROW(parse_type(repeated("a", 32) + "v<" + repeated("a", 31) + "y>"));
    EXPECT_NO_THROW(parse_type("(" + repeated("y", 253) + ")"));
}

TEST(Types, TakeInitialValuesThatFit)
{
    // Type, text, literal; without the last the value is refused.
    constexpr std::string_view values[][3] = {
        {"y", "0", "0"},
        {"y", "255", "255"},
        {"y", "256", ""},
        {"y", "-1", ""},
        {"y", "", ""},
        {"y", "1 ", ""},
        {"y", "0x1", ""},
        {"n", "-32768", "-32768"},
        {"q", "65536", ""},
        {"i", "2147483648", ""},
        {"u", "4294967295", "4294967295U"},
        {"x", "-9223372036854775808", "-9223372036854775807L - 1"},
        {"t", "18446744073709551615", "18446744073709551615UL"},
        {"t", "18446744073709551616", ""},
        {"b", "true", "true"},
        {"b", "1", ""},
        {"d", "2", "2.0"},
        {"d", "1e400", ""},
        {"d", "nan", ""},
        {"s", "", "\"\""},
        {"s", "say \"\\\"\t1", R"("say \"\\\"\0111")"},
        {"(y)", "1", ""},
    };
    for (const auto& [type, text, literal] : values)
    {
        EXPECT_EQ(gantrygen::initial_literal(parse_type(type), text).value_or(""), literal)
            << type << ' ' << text;
    }
}

TEST(Symbols, SpellTypesAsTheDemanglerDoes)
{
    const std::pair<std::string_view, const std::type_info&> forms[] = {
        {"y", typeid(void(unsigned char))},
        {"t", typeid(void(unsigned long))},
        {"s", typeid(void(std::string))},
        {"As", typeid(void(std::set<std::string>))},
        {"aAay", typeid(void(std::vector<std::set<std::vector<unsigned char>>>))},
        {"a{qs}", typeid(void(std::map<unsigned short, std::string>))},
        {"a{sv<ns(nix)>}",
         typeid(void(std::map<std::string,
                              std::variant<short, std::string, std::tuple<short, int, long>>>))},
    };
    for (const auto& [extended, function] : forms)
    {
        const std::unique_ptr<char, decltype(&std::free)> demangled(
            abi::__cxa_demangle(function.name(), nullptr, nullptr, nullptr), std::free);
        std::string parameter = demangled.get();
        parameter.erase(0, parameter.find('('));
        constexpr std::string_view text =
            "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
        for (std::size_t at = 0; (at = parameter.find(text)) != std::string::npos;)
        {
            parameter.replace(at, text.size(), "std::string");
        }

        gantrygen::Interface interface {
        };
        interface.name = "a.B";
        interface.properties.push_back({"P", parse_type(extended), false, false, false, {}, 1});
        std::set<std::string> symbols;
        gantrygen::add_symbols(interface, symbols);
        EXPECT_TRUE(symbols.contains("sdbusplus::server::a::B::p" + parameter))
            << extended << ": " << parameter;
    }
}

} // namespace
