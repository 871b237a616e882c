// Messages as bytes: senders of both byte orders, and senders that break the rules. A bus checks
// what passes through it; a direct peer is checked by nobody before this library reads.
#include "peer.hpp"

#include <gtest/gtest.h>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using sdbusplus::exception::SdBusError;
using sdbusplus::message::message;
using test::Bytes;
using test::Peer;

class ByteOrder : public testing::TestWithParam<bool>
{
  protected:
    Bytes bytes() const
    {
        return Bytes(GetParam());
    }

    template <typename T>
    T receive(const std::string& signature, const Bytes& body)
    {
        const auto m = peer.receive(GetParam(), signature, body.get());
        return message(m.get()).unpack<T>();
    }

    // The description of the failure to read an array of 32-bit numbers.
    std::string refusal(const Bytes& body, const std::string& signature = "au")
    {
        try
        {
            receive<std::vector<unsigned int>>(signature, body);
        }
        catch (const SdBusError& e)
        {
            return e.description();
        }
        return "none";
    }

    Peer peer;
};

INSTANTIATE_TEST_SUITE_P(Wire, ByteOrder, testing::Bool(),
                         [](const auto& order)
                         { return std::string(order.param ? "big" : "little"); });

TEST_P(ByteOrder, arrays_of_numbers)
{
    EXPECT_EQ(receive<std::vector<unsigned int>>(
                  "au", bytes().number(8, 4).number(1, 4).number(0x01020304, 4)),
              (std::vector<unsigned int>{1, 0x01020304}));
    EXPECT_EQ(
        receive<std::vector<unsigned char>>("ay", bytes().number(2, 4).number(1, 1).number(254, 1)),
        (std::vector<unsigned char>{1, 254}));
    EXPECT_EQ(receive<std::vector<short>>("an", bytes().number(2, 4).number(0xff01, 2)),
              (std::vector<short>{-255}));
    EXPECT_EQ(receive<std::vector<unsigned long>>("at", bytes().number(0, 4).align(8)),
              std::vector<unsigned long>{});
    EXPECT_EQ(receive<std::vector<double>>(
                  "ad", bytes().number(8, 4).align(8).number(0x3fe0000000000000, 8)),
              std::vector<double>{0.5});
}

TEST_P(ByteOrder, nested_forms)
{
    using Nested = std::tuple<unsigned short, std::vector<std::vector<unsigned int>>, std::string>;
    EXPECT_EQ(receive<Nested>("(qaaus)", bytes()
                                             .number(0x0102, 2)
                                             .number(16, 4) // both inner arrays
                                             .number(4, 4)
                                             .number(7, 4)
                                             .number(4, 4)
                                             .number(8, 4)
                                             .string("behind")),
              (Nested{0x0102, {{7}, {8}}, "behind"}));
}

TEST_P(ByteOrder, a_broken_array_fails_at_the_call_that_meets_the_break)
{
    const std::string bad = ": " + std::string(std::strerror(EBADMSG));
    const std::string busy = ": " + std::string(std::strerror(EBUSY));
    EXPECT_EQ(refusal(bytes()), "sd_bus_message_enter_container emplace_back_container" + bad);
    EXPECT_EQ(refusal(bytes().number(1u << 30, 4).number(1, 4)),
              "sd_bus_message_enter_container emplace_back_container" + bad);
    EXPECT_EQ(refusal(bytes().number(100, 4).number(1, 4).number(2, 4)),
              "sd_bus_message_read_basic fundamental" + bad);
    EXPECT_EQ(refusal(bytes().number(6, 4).number(1, 4).number(2, 4).number(3, 4), "auu"),
              "sd_bus_message_exit_container emplace_back_container" + busy);
}

} // namespace
