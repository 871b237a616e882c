#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tallybook.hpp>
#include <tallybook_inspect.hpp>

namespace
{

using Tallybook::Entry;
using Tallybook::Operation;

constexpr auto set_key = Operation::Kind::set_key;
constexpr auto remove = Operation::Kind::remove;

class TallybookTest : public testing::Test
{
  protected:
    TallybookTest()
    {
        Tallybook::clear();
    }
};

TEST_F(TallybookTest, KeepsTheLatestRegistrationOfEachKeyUntilItIsRemoved)
{
    Tallybook::set_key("b", "Gantrytest", "/one", 7);
    Tallybook::set_key("a", "Gantrytest", "/one", 7);
    Tallybook::set_key("b", "Gantrytest", "/two", 65535);
    const Entry a{"a", "Gantrytest", "/one", 7};
    const Entry b{"b", "Gantrytest", "/two", 65535};
    EXPECT_EQ(Tallybook::entries(), (std::vector<Entry>{a, b}));
    Tallybook::remove("b");
    EXPECT_EQ(Tallybook::entries(), (std::vector<Entry>{a}));
}

TEST_F(TallybookTest, HistoryShowsWhatChangedNothingAndIsBounded)
{
    const Entry entry{"a", "Gantrytest", "/one", 7};
    Tallybook::set_key("a", "Gantrytest", "/one", 7);
    Tallybook::set_key("a", "Gantrytest", "/one", 7);
    Tallybook::remove("");
    EXPECT_EQ(Tallybook::history(),
              (std::vector<Operation>{{set_key, entry}, {set_key, entry}, {remove, {}}}));

    for (std::size_t i = 0; i <= Tallybook::history_limit; ++i)
    {
        Tallybook::remove(std::to_string(i));
    }
    const auto history = Tallybook::history();
    ASSERT_EQ(history.size(), Tallybook::history_limit);
    EXPECT_EQ(history.front().entry.key, "1");
}

TEST_F(TallybookTest, CallerIdIsStableAndFitsSixteenBits)
{
    const int id = tallybook_caller_id();
    EXPECT_EQ(id, tallybook_caller_id());
    EXPECT_EQ(id, static_cast<unsigned short>(id));
}

TEST_F(TallybookTest, TakesCallsFromSeveralThreads)
{
    std::vector<std::jthread> threads;
    for (const char* const name : {"a", "b", "c", "d"})
    {
        threads.emplace_back(
            [name]
            {
                for (int i = 0; i < 200; ++i)
                {
                    const std::string key = name + std::to_string(i);
                    Tallybook::set_key(key, "Gantrytest", "/", 1);
                    Tallybook::remove(key);
                }
                Tallybook::set_key(name, "Gantrytest", "/", 1);
            });
    }
    threads.clear();
    EXPECT_EQ(Tallybook::entries().size(), 4);
}

} // namespace
