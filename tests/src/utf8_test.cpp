// What the library takes for valid text must be what sd-bus takes, to the byte: where it is more
// generous, a string costs the connection. So sd-bus itself is the judge.
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "utf8.hpp"

namespace
{

using gantry::is_utf8;
using gantry::repaired_utf8;

class Utf8 : public testing::Test
{
  protected:
    // A connection that is still on its way to nowhere makes messages all the same.
    Utf8() : bus(nullptr, sd_bus_unref), message(nullptr, sd_bus_message_unref)
    {
        sd_bus* made = nullptr;
        EXPECT_GE(sd_bus_new(&made), 0);
        bus.reset(made);
        EXPECT_GE(sd_bus_set_address(made, "unix:path=/nonexistent"), 0);
        sd_bus_start(made);
    }

    bool sd_bus_accepts(const std::string& text)
    {
        // A refused string spoils the message; an accepted one makes it longer.
        if (message == nullptr || ++appended == 1000)
        {
            sd_bus_message* made = nullptr;
            EXPECT_GE(sd_bus_message_new_signal(bus.get(), &made, "/a", "a.a", "a"), 0);
            message.reset(made);
            appended = 0;
        }
        const bool accepted = sd_bus_message_append_basic(message.get(), 's', text.c_str()) >= 0;
        if (!accepted)
        {
            message.reset();
        }
        return accepted;
    }

    // To be asserted: one failure says enough.
    bool agrees(const std::string& text)
    {
        const bool accepted = sd_bus_accepts(text);
        const std::string repaired = repaired_utf8(text);
        const bool agreed = is_utf8(text) == accepted && (repaired == text) == accepted &&
                            is_utf8(repaired) && sd_bus_accepts(repaired);
        EXPECT_TRUE(agreed) << testing::PrintToString(text) << " became "
                            << testing::PrintToString(repaired);
        return agreed;
    }

    std::unique_ptr<sd_bus, decltype(&sd_bus_unref)> bus;
    std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> message;
    int appended = 0;
};

TEST_F(Utf8, AgreesWithSdBusOnAllSequencesAtTheEdges)
{
    // Each byte at which some rule about leads and continuations changes; a zero ends the text.
    for (const char lead :
         "\x41\x7F\x80\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF")
    {
        constexpr std::string_view edges(
            "\0\x41\x7F\x80\x8F\x90\x9F\xA0\xAF\xB0\xB7\xBE\xBF\xC0\xFF", 15);
        for (const char second : edges)
        {
            for (const char third : edges)
            {
                for (const char fourth : edges)
                {
                    const char text[] = {lead, second, third, fourth, '\0'};
                    ASSERT_TRUE(agrees(text));
                }
            }
        }
    }
}

TEST_F(Utf8, AgreesWithSdBusOnMixedText)
{
    const std::string pieces[] = {
        "a",        "\u00E9",       "\u20AC",       "\U0001F600",   "\x80",         "\xC3",
        "\xE2\x82", "\xF0\x9F\x98", "\xED\xA0\x80", "\xEF\xBF\xBE", "\xEF\xB7\x90", "\xFF",
    };
    // A fault at each place in a text of several machine words, and the end at each place.
    for (const std::string& piece : pieces)
    {
        for (std::size_t before = 0; before < 20; ++before)
        {
            ASSERT_TRUE(agrees(std::string(before, 'x') + piece));
            for (const std::string& next : pieces)
            {
                ASSERT_TRUE(agrees(std::string(before, 'x') + piece + next +
                                   std::string(20 - before, 'y')));
            }
        }
    }
}

TEST_F(Utf8, RepairsEachBrokenCharacterOnce)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"caf\xE9", "caf\uFFFD"},                 // Latin-1
        {"\xE2\x82", "\uFFFD"},                   // cut off within a character
        {"\xE2\x82z", "\uFFFDz"},                 // which goes on
        {"\xF0\x9F\x98\xC3\xA9", "\uFFFD\u00E9"}, // by another one
        {"\x80\x80", "\uFFFD\uFFFD"},             // two that belong to none
        {"\xC0\xAF", "\uFFFD\uFFFD"},             // overlong: neither byte can begin one
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},   // a surrogate, likewise
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xEF\xBF\xBE|\xF0\x9F\xBF\xBF", "\uFFFD|\uFFFD"}, // noncharacters are characters
        {std::string("a\0\xFF", 3), std::string("a\0\uFFFD", 5)},
    };
    for (const auto& [text, repaired] : cases)
    {
        EXPECT_EQ(repaired_utf8(text), repaired) << testing::PrintToString(text);
    }

    // Nothing behind the text is read: one that is part of a longer one, cut off at each byte.
    constexpr std::string_view whole = "12345678\xF0\x9F\x98\x80\u00E9";
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const std::string copy(whole.substr(0, size));
        EXPECT_EQ(is_utf8(whole.substr(0, size)), sd_bus_accepts(copy)) << size;
        EXPECT_EQ(repaired_utf8(whole.substr(0, size)), repaired_utf8(copy)) << size;
    }
}

} // namespace
