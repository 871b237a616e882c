// The order of a read's calls into sd-bus, and the name under which each of them fails.
#include "calls.hpp"
#include "peer.hpp"

#include <gmock/gmock.h>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <cstring>
#include <map>
#include <set>
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

using Byte = unsigned char;
using Nix = std::tuple<short, int, long>;

// A call as it is written down, and what its failure is called behind the function's name.
struct Step
{
    std::string call;
    std::string kind;
};

std::string failure(const Step& step)
{
    static const std::map<std::string, std::string> functions{
        {"read", "sd_bus_message_read_basic"},    {"enter", "sd_bus_message_enter_container"},
        {"at_end", "sd_bus_message_at_end"},      {"exit", "sd_bus_message_exit_container"},
        {"verify", "sd_bus_message_verify_type"}, {"skip", "sd_bus_message_skip"},
    };
    return functions.at(step.call.substr(0, step.call.find(' '))) + " " + step.kind + ": " +
           std::strerror(Calls::error);
}

// Reading a T makes these calls; when one of them fails, it is the last, and it gives its name.
template <typename T>
void expect_walk(const Message& m, const std::vector<Step>& steps)
{
    for (std::size_t i = 0; i <= steps.size(); ++i)
    {
        Calls calls;
        calls.blocks = false;
        calls.failing = i;
        sd_bus_message_rewind(m.get(), true);
        std::string failed;
        try
        {
            message(m.get(), &calls).unpack<T>();
        }
        catch (const SdBusError& e)
        {
            failed = e.description();
            EXPECT_EQ(e.get_errno(), Calls::error);
        }
        ASSERT_EQ(failed, i < steps.size() ? failure(steps[i]) : "") << "call " << i;

        std::vector<std::string> expected;
        for (std::size_t made = 0; made < std::min(i + 1, steps.size()); ++made)
        {
            expected.push_back(steps[made].call);
        }
        ASSERT_EQ(calls.made, expected) << "call " << i;
    }
}

TEST(Walk, basic_values)
{
    const Peer peer;
    expect_walk<Byte>(peer.sealed("y", 1), {{"read y", "fundamental"}});
    expect_walk<double>(peer.sealed("d", 1.0), {{"read d", "fundamental"}});
    expect_walk<bool>(peer.sealed("b", 1), {{"read b", "bool"}});
    expect_walk<std::string>(peer.sealed("s", "x"), {{"read s", "string"}});
}

TEST(Walk, vector_of_strings)
{
    const Peer peer;
    expect_walk<std::vector<std::string>>(peer.sealed("as", 1, "x"),
                                          {
                                              {"enter a s", "emplace_back_container"},
                                              {"at_end", "emplace_back_container"},
                                              {"read s", "string"},
                                              {"at_end", "emplace_back_container"},
                                              {"exit", "emplace_back_container"},
                                          });
}

TEST(Walk, vector_of_numbers_without_blocks)
{
    const Peer peer;
    expect_walk<std::vector<std::vector<unsigned int>>>(
        peer.sealed("aau", 2, 0, 1, 5), {
                                            {"enter a au", "emplace_back_container"},
                                            {"at_end", "emplace_back_container"},
                                            {"enter a u", "emplace_back_container"},
                                            {"at_end", "emplace_back_container"},
                                            {"exit", "emplace_back_container"},
                                            {"at_end", "emplace_back_container"},
                                            {"enter a u", "emplace_back_container"},
                                            {"at_end", "emplace_back_container"},
                                            {"read u", "fundamental"},
                                            {"at_end", "emplace_back_container"},
                                            {"exit", "emplace_back_container"},
                                            {"at_end", "emplace_back_container"},
                                            {"exit", "emplace_back_container"},
                                        });
}

TEST(Walk, set_of_structs)
{
    const Peer peer;
    expect_walk<std::set<Nix>>(peer.sealed("a(nix)", 1, 1, 2, int64_t{3}),
                               {
                                   {"enter a (nix)", "emplace_container"},
                                   {"at_end", "emplace_container"},
                                   {"enter r nix", "tuple"},
                                   {"read n", "fundamental"},
                                   {"read i", "fundamental"},
                                   {"read x", "fundamental"},
                                   {"exit", "tuple"},
                                   {"at_end", "emplace_container"},
                                   {"exit", "emplace_container"},
                               });
}

TEST(Walk, map_of_variants)
{
    const Peer peer;
    using Value = std::variant<short, std::string, Nix>;
    expect_walk<std::map<std::string, Value>>(
        peer.sealed("a{sv}", 3, "a", "s", "x", "b", "(nix)", 1, 2, int64_t{3}, "c", "d", 0.5),
        {
            {"enter a {sv}", "emplace_container"},
            {"at_end", "emplace_container"},
            {"enter e sv", "pair"},
            {"read s", "string"},
            {"verify v n", "variant"},
            {"verify v s", "variant"},
            {"enter v s", "variant"},
            {"read s", "string"},
            {"exit", "variant"},
            {"exit", "pair"},
            {"at_end", "emplace_container"},
            {"enter e sv", "pair"},
            {"read s", "string"},
            {"verify v n", "variant"},
            {"verify v s", "variant"},
            {"verify v (nix)", "variant"},
            {"enter v (nix)", "variant"},
            {"enter r nix", "tuple"},
            {"read n", "fundamental"},
            {"read i", "fundamental"},
            {"read x", "fundamental"},
            {"exit", "tuple"},
            {"exit", "variant"},
            {"exit", "pair"},
            {"at_end", "emplace_container"},
            {"enter e sv", "pair"},
            {"read s", "string"},
            {"verify v n", "variant"},
            {"verify v s", "variant"},
            {"verify v (nix)", "variant"},
            {"skip v", "variant"},
            {"exit", "pair"},
            {"at_end", "emplace_container"},
            {"exit", "emplace_container"},
        });
}

TEST(Walk, nested_structs)
{
    const Peer peer;
    using Nested = std::tuple<std::tuple<Byte, std::tuple<unsigned short, unsigned int>>, int,
                              std::tuple<long, unsigned long>>;
    expect_walk<Nested>(peer.sealed("((y(qu))i(xt))", 1, 2, 3, 4, int64_t{5}, uint64_t{6}),
                        {
                            {"enter r (y(qu))i(xt)", "tuple"},
                            {"enter r y(qu)", "tuple"},
                            {"read y", "fundamental"},
                            {"enter r qu", "tuple"},
                            {"read q", "fundamental"},
                            {"read u", "fundamental"},
                            {"exit", "tuple"},
                            {"exit", "tuple"},
                            {"read i", "fundamental"},
                            {"enter r xt", "tuple"},
                            {"read x", "fundamental"},
                            {"read t", "fundamental"},
                            {"exit", "tuple"},
                            {"exit", "tuple"},
                        });
}

// What a client gets to see that sends the wrong type.
template <typename T>
std::string refusal(const Message& m)
{
    try
    {
        message(m.get()).unpack<T>();
    }
    catch (const SdBusError& e)
    {
        return std::string(e.description());
    }
    return "none";
}

TEST(Walk, a_wrong_signature_names_the_first_call_that_meets_it)
{
    const Peer peer;
    const std::string no_such = ": " + std::string(std::strerror(ENXIO));
    EXPECT_EQ(refusal<int>(peer.sealed("u", 1)), "sd_bus_message_read_basic fundamental" + no_such);
    EXPECT_EQ(refusal<bool>(peer.sealed("y", 1)), "sd_bus_message_read_basic bool" + no_such);
    EXPECT_EQ(refusal<std::string>(peer.sealed("")), "sd_bus_message_read_basic string" + no_such);
    // An array of numbers is tried as a block first: the refusal is that of reading by elements.
    EXPECT_EQ(refusal<std::vector<Byte>>(peer.sealed("an", 1, 1)),
              "sd_bus_message_enter_container emplace_back_container" + no_such);
    EXPECT_EQ(refusal<std::set<Nix>>(peer.sealed("a(nit)", 1, 1, 2, uint64_t{3})),
              "sd_bus_message_enter_container emplace_container" + no_such);
    EXPECT_EQ(refusal<Nix>(peer.sealed("(nii)", 1, 2, 3)),
              "sd_bus_message_enter_container tuple" + no_such);
    EXPECT_EQ((refusal<std::variant<Byte, std::string>>(peer.sealed("y", 1))),
              "sd_bus_message_skip variant" + no_such);
}

} // namespace
