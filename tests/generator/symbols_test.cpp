#include "symbols.hpp"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <tuple>
#include <typeinfo>
#include <variant>
#include <vector>

namespace
{

// What nm prints of a function that takes the type, in the short form for strings.
std::string parameter(const std::type_info& function)
{
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(function.name(), nullptr, nullptr, nullptr), std::free);
    static const std::regex string(
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >");
    const std::string text = std::regex_replace(demangled.get(), string, "std::string");
    return text.substr(text.find('('));
}

TEST(Symbols, SpellTypesAsTheDemanglerDoes)
{
    const std::pair<std::string, const std::type_info&> forms[] = {
        {"y", typeid(void(unsigned char))},
        {"b", typeid(void(bool))},
        {"n", typeid(void(short))},
        {"q", typeid(void(unsigned short))},
        {"i", typeid(void(int))},
        {"u", typeid(void(unsigned int))},
        {"x", typeid(void(long))},
        {"t", typeid(void(unsigned long))},
        {"d", typeid(void(double))},
        {"s", typeid(void(std::string))},
        {"as", typeid(void(std::vector<std::string>))},
        {"aAay", typeid(void(std::vector<std::set<std::vector<unsigned char>>>))},
        {"A(nix)", typeid(void(std::set<std::tuple<short, int, long>>))},
        {"As", typeid(void(std::set<std::string>))},
        {"a{qs}", typeid(void(std::map<unsigned short, std::string>))},
        {"a{s(nix)}", typeid(void(std::map<std::string, std::tuple<short, int, long>>))},
        {"(ys)", typeid(void(std::tuple<unsigned char, std::string>))},
        {"v<y(nix)s>",
         typeid(void(std::variant<unsigned char, std::tuple<short, int, long>, std::string>))},
        {"a{sv<ns(nix)>}",
         typeid(void(std::map<std::string,
                              std::variant<short, std::string, std::tuple<short, int, long>>>))},
    };
    for (const auto& [extended, function] : forms)
    {
        const gantrygen::Interface interface {
            "", "a.B", {}, {}, {{"P", gantrygen::parse_type(extended), false, false, false, {}, 1}},
                1
        };
        std::set<std::string> symbols;
        gantrygen::add_symbols(interface, symbols);
        EXPECT_TRUE(symbols.contains("sdbusplus::server::a::B::p" + parameter(function)))
            << extended << ": " << parameter(function);
    }
}

} // namespace
