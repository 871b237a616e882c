// What the library takes for valid text must be what sd-bus takes, to the byte: where it is more
// generous, a string costs the connection. So sd-bus itself is the judge.
#include <array>
#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "utf8.hpp"

namespace
{

using gantry::is_utf8;
using gantry::repaired_utf8;

// Asks sd-bus. A connection that is still on its way to nowhere makes messages all the same.
class Judge
{
  public:
    Judge()
    {
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        bus_.reset(bus);
        EXPECT_GE(sd_bus_set_address(bus, "unix:path=/nonexistent"), 0);
        sd_bus_start(bus);
    }

    bool accepts(const std::string& text)
    {
        // A refused string spoils the message; an accepted one makes it longer.
        if (message_ == nullptr || appended_ == 1000)
        {
            sd_bus_message* message = nullptr;
            EXPECT_GE(sd_bus_message_new_signal(bus_.get(), &message, "/a", "a.a", "a"), 0);
            message_.reset(message);
            appended_ = 0;
        }
        ++appended_;
        const bool accepted =
            sd_bus_message_append_basic(message_.get(), SD_BUS_TYPE_STRING, text.c_str()) >= 0;
        if (!accepted)
        {
            message_.reset();
        }
        return accepted;
    }

  private:
    struct Unref
    {
        void operator()(sd_bus* bus) const noexcept
        {
            sd_bus_unref(bus);
        }
        void operator()(sd_bus_message* message) const noexcept
        {
            sd_bus_message_unref(message);
        }
    };

    std::unique_ptr<sd_bus, Unref> bus_;
    std::unique_ptr<sd_bus_message, Unref> message_;
    int appended_ = 0;
};

class Utf8 : public testing::Test
{
  protected:
    // False ends the caller's loop: one failure says enough.
    testing::AssertionResult agrees(const std::string& text)
    {
        const bool accepted = judge.accepts(text);
        if (is_utf8(text) != accepted)
        {
            return testing::AssertionFailure()
                   << testing::PrintToString(text) << ": sd-bus "
                   << (accepted ? "accepts" : "refuses") << " it, is_utf8 does not";
        }
        const std::string repaired = repaired_utf8(text);
        if (accepted ? repaired != text : !is_utf8(repaired) || !judge.accepts(repaired))
        {
            return testing::AssertionFailure() << testing::PrintToString(text) << " became "
                                               << testing::PrintToString(repaired);
        }
        return testing::AssertionSuccess();
    }

    Judge judge;
};

TEST_F(Utf8, AgreesWithSdBusOnAllSequencesAtTheEdges)
{
    for (unsigned first = 1; first < 0x100; ++first)
    {
        for (unsigned second = 0; second < 0x100; ++second)
        {
            std::string text{static_cast<char>(first)};
            if (second != 0)
            {
                text += static_cast<char>(second);
            }
            ASSERT_TRUE(agrees(text));
        }
    }
    // Each byte at which some rule about leads and continuations changes.
    constexpr std::array leads{0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF,
                               0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFC, 0xFF};
    constexpr std::array edges{0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0,
                               0xAF, 0xB0, 0xB7, 0xBE, 0xBF, 0xC0, 0xFF};
    for (const int lead : leads)
    {
        for (const int second : edges)
        {
            for (const int third : edges)
            {
                for (const int fourth : edges)
                {
                    const std::string text{static_cast<char>(lead), static_cast<char>(second),
                                           static_cast<char>(third), static_cast<char>(fourth)};
                    ASSERT_TRUE(agrees(text));
                }
                ASSERT_TRUE(agrees({static_cast<char>(lead), static_cast<char>(second),
                                    static_cast<char>(third)}));
            }
        }
    }
}

TEST_F(Utf8, AgreesWithSdBusOnMixedText)
{
    // Pieces that a text may be made of, good ones first.
    const std::vector<std::string> pieces{
        "a",        "inventory",  "slot 1.2.3.4.5.6", "\u00E9",
        "\u20AC",   "\U0001F600", "\uFFFD",           "\x80",
        "\xC3",     "\xE2\x82",   "\xF0\x9F\x98",     "\xED\xA0\x80",
        "\xC0\xAF", "\xFF",       "\xEF\xBF\xBE",     "\xEF\xB7\x90",
    };
    constexpr std::size_t good = 7;
    std::mt19937 random(1); // the same texts each time
    for (int round = 0; round < 20000; ++round)
    {
        std::string text;
        for (std::size_t count = random() % 8; count > 0; --count)
        {
            text += pieces[random() % (round % 2 == 0 ? good : pieces.size())];
        }
        ASSERT_TRUE(agrees(text));
    }
    // A fault at each place in a text of several machine words, and the end at each place.
    for (const std::string& piece : pieces)
    {
        for (std::size_t before = 0; before < 20; ++before)
        {
            ASSERT_TRUE(agrees(std::string(before, 'x') + piece));
            ASSERT_TRUE(agrees(std::string(before, 'x') + piece + std::string(20 - before, 'y')));
        }
    }
}

TEST_F(Utf8, RepairsEachBrokenCharacterOnce)
{
    struct Case
    {
        std::string text;
        std::string repaired;
    };
    const std::vector<Case> cases{
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
}

// A text may be part of a longer one, here with its character cut off at each byte.
TEST_F(Utf8, ReadsNothingBehindTheText)
{
    constexpr std::string_view whole = "12345678\xF0\x9F\x98\x80\u00E9";
    for (std::size_t size = 0; size <= whole.size(); ++size)
    {
        const std::string_view text = whole.substr(0, size);
        EXPECT_EQ(is_utf8(text), judge.accepts(std::string(text))) << size;
        EXPECT_EQ(repaired_utf8(text), repaired_utf8(std::string(text))) << size;
    }
}

} // namespace
