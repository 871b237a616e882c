#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <tallybook.hpp>
#include <tallybook_inspect.hpp>

namespace
{

using Tallybook::Entry;
using Tallybook::Operation;
using testing::ElementsAre;
using testing::SizeIs;

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
    EXPECT_THAT(Tallybook::entries(), ElementsAre(Entry{"a", "Gantrytest", "/one", 7},
                                                  Entry{"b", "Gantrytest", "/two", 65535}));
    Tallybook::remove("b");
    EXPECT_THAT(Tallybook::entries(), ElementsAre(Entry{"a", "Gantrytest", "/one", 7}));
}

TEST_F(TallybookTest, HistoryShowsWhatChangedNothing)
{
    static_assert(noexcept(Tallybook::remove(std::declval<const std::string&>())));
    Tallybook::set_key("a", "Gantrytest", "/one", 7);
    Tallybook::set_key("a", "Gantrytest", "/one", 7);
    Tallybook::remove("");
    const Entry entry{"a", "Gantrytest", "/one", 7};
    EXPECT_THAT(
        Tallybook::history(),
        ElementsAre(Operation{set_key, entry}, Operation{set_key, entry}, Operation{remove, {}}));
}

TEST_F(TallybookTest, HistoryIsBounded)
{
    for (std::size_t i = 0; i <= Tallybook::history_limit; ++i)
    {
        Tallybook::remove(std::to_string(i));
    }
    const auto history = Tallybook::history();
    ASSERT_THAT(history, SizeIs(Tallybook::history_limit));
    EXPECT_EQ(history.front().entry.key, "1");
    EXPECT_EQ(history.back().entry.key, std::to_string(Tallybook::history_limit));
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
    EXPECT_THAT(Tallybook::entries(), SizeIs(4));
    EXPECT_THAT(Tallybook::history(), SizeIs(Tallybook::history_limit));
}

} // namespace
