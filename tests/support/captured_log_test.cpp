#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <unistd.h>

#include "support/captured_log.hpp"

void log_from_library(const char* what);

namespace
{

namespace captured_log = support::captured_log;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(CapturedLog, TakesTheMessagesOfALibraryApart)
{
    captured_log::clear();
    log_from_library("50%s of it\n");

    const auto all = captured_log::messages();
    ASSERT_THAT(all, SizeIs(3));
    EXPECT_EQ(all[0].level, 2);
    EXPECT_EQ(all[0].mask, 0x110);
    EXPECT_EQ(all[0].format, "EXCEPTION %s.%d.%s: %s\n");
    EXPECT_EQ(all[0].text, "EXCEPTION log_caller.7.~BLT: 50%s of it\n\n");
    EXPECT_TRUE(all[0].exception);
    EXPECT_EQ(all[0].file, "log_caller");
    EXPECT_EQ(all[0].line, 7);
    EXPECT_EQ(all[0].function, "~BLT");
    EXPECT_EQ(all[0].thread, gettid());
    EXPECT_EQ(all[1].mask, 0x80);
    EXPECT_EQ(all[1].text, "log_caller.8.operator(): rv=-5, 6");
    EXPECT_FALSE(all[1].exception);
    EXPECT_EQ(all[2].text, "without location 9");
    EXPECT_EQ(all[2].message, all[2].text);

    EXPECT_THAT(captured_log::lines(9), ElementsAre("operator(): rv=-5, 6"));
    EXPECT_EQ(captured_log::find("rv=-5, 6").value().line, 8);
    EXPECT_FALSE(captured_log::find("rv=-5, 6", "elsewhere"));
    EXPECT_EQ(captured_log::count("rv=-5, 6", "operator()"), 1U);
    captured_log::clear();
    EXPECT_THAT(captured_log::messages(), IsEmpty());
}

TEST(CapturedLog, KeepsTheThreadOfEachMessage)
{
    captured_log::clear();
    pid_t first = 0;
    std::thread(
        [&]
        {
            first = gettid();
            log_from_library("");
        })
        .join();
    log_from_library("");
    const auto all = captured_log::messages();
    ASSERT_THAT(all, SizeIs(6));
    EXPECT_EQ(all[0].thread, first);
    EXPECT_EQ(all[5].thread, gettid());
}

} // namespace
