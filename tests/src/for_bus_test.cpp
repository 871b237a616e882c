// What the library takes for valid text must be what sd-bus takes, to the byte: where it is more
// generous, a string costs the connection. So sd-bus itself is the judge.
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include <gantry/types.hpp>

#include "support/client.hpp"

namespace
{

class Utf8 : public testing::Test
{
  protected:
    // The text as it leaves the library.
    std::string sent(std::string text)
    {
        const support::Message made = client.new_signal("/", "a.b", "c");
        sdbusplus::message_t message(made.get());
        char* given = text.data();
        GANTRY_string_reply_append(message, &given);
        support::check(sd_bus_message_seal(made.get(), 1, 0));
        const char* read = nullptr;
        support::check(sd_bus_message_read_basic(made.get(), 's', &read));
        return read;
    }

    // To be asserted: one failure says enough.
    bool agrees(const std::string& text)
    {
        const support::Message message = client.new_signal("/", "a.b", "c");
        const bool accepted = sd_bus_message_append_basic(message.get(), 's', text.c_str()) >= 0;
        EXPECT_EQ(sent(text) == text, accepted) << testing::PrintToString(text);
        return !HasFailure();
    }

    support::Client client;
};

TEST_F(Utf8, AgreesWithSdBusAtAllEdges)
{
    // Each byte at which some rule about leads and continuations changes; a zero ends the text.
    constexpr std::string_view edges("\0\x41\x7F\x80\x8F\x90\x9F\xA0\xAF\xB0\xB7\xBE\xBF\xC0\xFF",
                                     15);
    for (const char lead :
         "\x41\x7F\x80\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF")
    {
        for (std::size_t rest = 0; rest < edges.size() * 225; ++rest)
        {
            const char text[] = {lead, edges[rest / 225], edges[rest / 15 % 15], edges[rest % 15],
                                 '\0'};
            ASSERT_TRUE(agrees(text));
        }
    }
    // At each place in a text of several machine words, and at its end.
    for (std::size_t before = 0; before < 20; ++before)
    {
        for (const char* piece : {"\xFF", "\xE2\x82", "\u20AC"})
        {
            const std::string text = std::string(before, 'x') + piece;
            ASSERT_TRUE(agrees(text) && agrees(text + std::string(20 - before, 'y')));
        }
    }
}

TEST_F(Utf8, RepairsEachBrokenCharacterOnce)
{
    const std::pair<std::string, std::string> cases[] = {
        {"caf\xE9", "caf\uFFFD"},                           // Latin-1
        {"\xE2\x82", "\uFFFD"},                             // cut off within a character
        {"\xE2\x82z", "\uFFFDz"},                           // which goes on
        {"\xF0\x9F\x98\xC3\xA9", "\uFFFD\u00E9"},           // by another one
        {"\xC0\xAF", "\uFFFD\uFFFD"},                       // overlong: neither byte can begin one
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},             // a surrogate, likewise
        {"\xEF\xBF\xBE|\xF0\x9F\xBF\xBF", "\uFFFD|\uFFFD"}, // noncharacters are characters
    };
    for (const auto& [text, repaired] : cases)
    {
        EXPECT_EQ(sent(text), repaired) << testing::PrintToString(text);
    }
}

} // namespace
